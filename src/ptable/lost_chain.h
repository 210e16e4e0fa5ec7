// Lost extended partitions, told from the chain of their EBRs.
#pragma once

#include <optional>
#include <vector>

#include "disk/mbr_record.h"
#include "probe/lost_volume.h"
#include "ptable/lost_partitions.h"

namespace tallowin {

struct LostChain {
  LostPartition partition;
  std::vector<u64> places;  // where its EBRs and its volumes begin
};

class ChainSearch {
 public:
  // All are borrowed.
  ChainSearch(Drive& drive, const LostSearch& search, VolumeRecogniser& recogniser)
      : drive_(drive), search_(search), recogniser_(recogniser) {}

  // The extended partition that begins with an EBR in this sector. On the top level of an MBR only.
  std::optional<LostChain> examine(u64 lba, const u8* sector) const;

 private:
  bool mayBeFirst(const EbrRecord& ebr) const;
  bool isUsualStart(u64 sectors) const;
  u64 sizeOfContent(const VolumeEntry& volume) const;
  Confidence confidenceOf(const VolumeList& list, bool isClean) const;

  Drive& drive_;
  const LostSearch& search_;
  VolumeRecogniser& recogniser_;
};

}  // namespace tallowin
