#include "cli/file_system_facts.h"

#include "base/text.h"
#include "ops/volume_files.h"

namespace tallowin {

namespace {

// What any driver knows.
Failure factsOfDriver(const OperationContext& context, const FileSystemKind& kind,
                      const SectorRange& range, u16 type, FileSystemFacts& facts) {
  if (!kind.open) return Error::invalidVolume;
  std::unique_ptr<FileSystem> files;
  if (const Failure failed = kind.open(range, type, openWishOf(context, FilesUse::look), files))
    return failed;
  SpaceInfo space;
  if (const Failure failed = files->space(space)) return failed;
  facts = {};
  facts.name = kind.name;
  facts.clusterBytes = space.unitBytes;
  facts.clusters = space.totalUnits;
  facts.freeClusters = space.freeUnits;
  return {};
}

}  // namespace

Failure readFileSystemFacts(const OperationContext& context, Drive& drive,
                            const PartitionEntry& entry, FileSystemFacts& facts) {
  if (entry.isInError()) return Error::invalidVolume;
  const SectorRange range = rangeOf(drive, entry);
  const FileSystemKind* kind = kindIn(context.fileSystems, drive, entry);
  if (!kind) return Error::invalidVolume;
  const Failure failed = kind->facts ? kind->facts(range, entry.type, CountClusters::yes, facts)
                                     : factsOfDriver(context, *kind, range, entry.type, facts);
  if (!failed) facts.label = labelIn(*kind, range, entry.type, context.options.codePage());
  return failed;
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
  return facts.layout.empty() ? text : text + "Layout         " + facts.layout + "\n";
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
