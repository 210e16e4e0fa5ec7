#include "iso/iso_kind.h"

#include <array>

#include "base/text.h"
#include "iso/iso_file_system.h"
#include "iso/iso_volume.h"

namespace tallowin {
namespace {

Failure readFacts(const SectorRange& range, u16, CountClusters, FileSystemFacts& facts) {
  std::optional<IsoVolume> volume;
  if (const Failure failed = openIso(range, volume)) return failed;
  facts = {};
  facts.name = "ISO 9660";
  facts.label = volume->label;
  facts.serial = volume->serial;
  facts.clusterBytes = kIsoSectorBytes;
  facts.clusters = volume->usedSectors;
  facts.layout = volume->isJoliet ? "long names of Joliet" : "plain names";
  facts.layoutNumbers = {{"joliet", volume->isJoliet ? 1U : 0U}};
  return {};
}

constexpr auto kContents = std::to_array<ContentCode>({ContentCode::iso9660});

constexpr FileSystemKind kIso = [] {
  FileSystemKind kind;
  kind.word = "iso9660";
  kind.name = "ISO 9660";
  kind.contents = kContents;
  kind.facts = readFacts;
  kind.open = openIsoFiles;
  return kind;
}();

}  // namespace

void registerIso(FileSystemKinds& kinds) { kinds.add(kIso); }

}  // namespace tallowin
