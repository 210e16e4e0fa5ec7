#include "cli/file_listing.h"

#include <ctime>

#include "base/text.h"

namespace tallowin {
namespace {

struct AttributeLetter {
  u32 attribute;
  char letter;
  const char* word;
};
constexpr AttributeLetter kAttributes[] = {{kFileDirectory, 'd', "directory"},
                                           {kFileReadOnly, 'r', "read-only"},
                                           {kFileHidden, 'h', "hidden"},
                                           {kFileSystemFile, 's', "system"},
                                           {kFileArchive, 'a', "archive"}};

std::string lettersOf(u32 attributes) {
  std::string letters;
  for (const AttributeLetter& row : kAttributes)
    letters += (attributes & row.attribute) != 0 ? row.letter : '-';
  return letters;
}

std::string localTimeText(FileTime time) {
  if (time < kFileTimeOfUnixEpoch) return "-";
  const auto seconds =
      static_cast<std::time_t>((time - kFileTimeOfUnixEpoch) / kFileTimeTicksPerSecond);
  std::tm local = {};
  if (::localtime_r(&seconds, &local) == nullptr) return "-";
  return format("%04d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900, local.tm_mon + 1,
                local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
}

void writeTime(JsonWriter& json, const char* key, FileTime time) {
  json.textOrNull(key, time == 0 ? std::nullopt : std::optional(fileTimeText(time)));
}

}  // namespace

std::string fileLine(const ListedFile& file, const std::string& name) {
  const std::string size =
      file.info.isDirectory()
          ? "-"
          : format("%llu", static_cast<unsigned long long>(file.info.sizeBytes));
  return format("%s %12s %19s  %s\n", lettersOf(file.info.attributes).c_str(), size.c_str(),
                localTimeText(file.info.times.modified).c_str(), printableFromUtf8(name).c_str());
}

std::string fileText(const ListedFile& file) {
  const FileInfo& info = file.info;
  std::string text = "Path           " + printableFromUtf8(file.path) + "\n";
  if (!info.shortName.empty()) text += "Short name     " + printableFromUtf8(info.shortName) + "\n";
  text += format("Size           %llu bytes\nAttributes    ",
                 static_cast<unsigned long long>(info.sizeBytes));
  for (const AttributeLetter& row : kAttributes)
    if ((info.attributes & row.attribute) != 0) text += format(" %s", row.word);
  return text + format("\nWritten        %s\nCreated        %s\nAccessed       %s\n",
                       localTimeText(info.times.modified).c_str(),
                       localTimeText(info.times.created).c_str(),
                       localTimeText(info.times.accessed).c_str());
}

void writeFile(JsonWriter& json, const ListedFile& file) {
  const FileInfo& info = file.info;
  json.text("path", file.path);
  json.textOrNull("short_name",
                  info.shortName.empty() ? std::nullopt : std::optional(info.shortName));
  json.boolean("directory", info.isDirectory());
  json.number("size", info.sizeBytes);
  json.beginArray("attributes");
  for (const AttributeLetter& row : kAttributes)
    if (row.attribute != kFileDirectory && (info.attributes & row.attribute) != 0)
      json.text(nullptr, row.word);
  json.endArray();
  writeTime(json, "modified", info.times.modified);
  writeTime(json, "created", info.times.created);
  writeTime(json, "accessed", info.times.accessed);
}

void writeProof(JsonWriter& json, const ContentProof& proof) {
  json.beginArray("files");
  for (const ProvenFile& file : proof.files) {
    json.beginObject();
    json.text("path", file.path);
    json.boolean("directory", file.isDirectory());
    json.number("size", file.sizeBytes);
    writeTime(json, "modified", file.times.modified);
    json.textOrNull("hash", file.isDirectory() ? std::nullopt : std::optional(hashText(file.hash)));
    json.endObject();
  }
  json.endArray();
}

void writeComparison(JsonWriter& json, const ProofComparison& comparison) {
  json.beginObject("comparison");
  json.number("files", comparison.files);
  json.number("identical", comparison.identical);
  json.beginArray("differences");
  for (const ProofDifference& difference : comparison.differences) {
    json.beginObject();
    json.text("path", difference.path);
    json.text("change", changeWord(difference.change));
    json.endObject();
  }
  json.endArray();
  json.endObject();
}

}  // namespace tallowin
