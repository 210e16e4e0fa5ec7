#include "cli/file_system_facts.h"

#include "base/text.h"

namespace tallowin {

Failure readFileSystemFacts(const FileSystemKinds& kinds, Drive& drive, const PartitionEntry& entry,
                            FileSystemFacts& facts) {
  if (entry.isInError()) return Error::invalidVolume;
  const FileSystemKind* kind = kindOf(kinds, entry);
  if (!kind || !kind->facts) return Error::invalidVolume;
  return kind->facts(rangeOf(drive, entry), entry.type, CountClusters::yes, facts);
}

std::string factsText(const FileSystemFacts& facts) {
  std::string text = format("File system    %s", facts.name.c_str());
  if (!facts.label.empty()) text += " '" + facts.label + "'";
  if (facts.serial)
    text += format(", serial %04X-%04X", *facts.serial >> 16, *facts.serial & 0xFFFF);
  const auto line = [&text](const char* what, u64 value, const char* unit) {
    text += format("%-14s %llu%s\n", what, static_cast<unsigned long long>(value), unit);
  };
  text += '\n';
  line("Cluster size", facts.clusterBytes, " byte(s)");
  line("Total clusters", facts.clusters, "");
  line("Free clusters", facts.freeClusters, "");
  line("Bad clusters", facts.badClusters, "");
  line("Used", facts.usedBytes(), " bytes");
  line("Free", facts.freeBytes(), " bytes");
  return text + "Layout         " + facts.layout + "\n";
}

void writeFacts(JsonWriter& json, const FileSystemFacts& facts) {
  json.beginObject("file_system");
  json.text("kind", facts.name);
  json.text("label", facts.label);
  json.numberOrNull("serial", facts.serial);
  json.number("cluster_size", facts.clusterBytes);
  json.number("clusters", facts.clusters);
  json.number("free_clusters", facts.freeClusters);
  json.number("bad_clusters", facts.badClusters);
  json.number("used_bytes", facts.usedBytes());
  json.number("free_bytes", facts.freeBytes());
  for (const FileSystemFacts::Number& number : facts.layoutNumbers)
    json.number(number.key, number.value);
  json.endObject();
}

}  // namespace tallowin
