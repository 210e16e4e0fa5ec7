#include "probe/file_system_kind.h"

#include <algorithm>

#include "base/text.h"
#include "probe/type_catalogue.h"

namespace tallowin {
namespace {

bool contains(const auto& list, const auto& wanted) {
  return std::ranges::find(list, wanted) != list.end();
}

template <typename Matches>
const FileSystemKind* firstOf(std::span<const FileSystemKind* const> kinds, Matches matches) {
  const auto found = std::ranges::find_if(kinds, matches);
  return found != kinds.end() ? *found : nullptr;
}

}  // namespace

const FileSystemKind* FileSystemKinds::byWord(std::string_view word) const {
  return firstOf(all(),
                 [&](const FileSystemKind* kind) { return equalsIgnoreCase(kind->word, word); });
}

const FileSystemKind* FileSystemKinds::byType(u16 type) const {
  const u16 plain = types::unhide(type);
  return firstOf(all(), [&](const FileSystemKind* kind) { return contains(kind->types, plain); });
}

const FileSystemKind* FileSystemKinds::byType(u16 type, const Guid& typeGuid) const {
  if (const FileSystemKind* kind = byType(type)) return kind;
  return firstOf(all(),
                 [&](const FileSystemKind* kind) { return contains(kind->typeGuids, typeGuid); });
}

const FileSystemKind* FileSystemKinds::byContent(const SectorRange& range, u16 type) const {
  Content content;
  if (identify(range.disk, range.firstSector, content)) return nullptr;
  return byContent(content.code, range, type);
}

const FileSystemKind* FileSystemKinds::byContent(ContentCode code, const SectorRange& range,
                                                 u16 type) const {
  return firstOf(all(), [&](const FileSystemKind* kind) {
    return contains(kind->contents, code) && (!kind->holds || kind->holds(range, type));
  });
}

std::string whyNotFormattable(const FileSystemKind* kind, u16 type) {
  if (kind && kind->format) return {};
  if (kind)
    return format("%s cannot be formatted by this version.", std::string(kind->name).c_str());
  return types::isNtfs(type) ? "NTFS cannot be formatted by this version."
                             : "Only partitions of a FAT or NTFS type can be formatted.";
}

std::string whyNotFormattable(const FileSystemKind* kind, u16 type, u64 sectors,
                              u32 sectorSizeBytes) {
  std::string why = whyNotFormattable(kind, type);
  if (!why.empty() || !kind->whyNotOfSize) return why;
  return kind->whyNotOfSize(type, sectors, sectorSizeBytes);
}

bool takesAutomaticClusters(const FileSystemKind& kind, u16 type) {
  return kind.takesAutomaticClusters && kind.takesAutomaticClusters(types::unhide(type));
}

}  // namespace tallowin
