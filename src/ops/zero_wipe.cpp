#include "ops/zero_wipe.h"

#include <algorithm>
#include <vector>

#include "ops/operation_progress.h"

namespace tallowin {
namespace {

constexpr u64 kPieceBytes = 4 * kMiB;

bool askToIgnore(FrontEnd& ui) {
  return ui.confirm(Consent::diskError, "Warning",
                    "An error has occurred during a write to the drive.\n\n"
                    "Do you want to continue and ignore further problems?");
}

class ZeroWiper {
 public:
  ZeroWiper(const OperationContext& context, DiskDevice& disk, const SectorExtent& extent)
      : context_(context),
        disk_(disk),
        extent_(extent),
        progress_(context.ui, context.host, "Wiping", "Wipe in progress...", "Cancel") {}

  WipeResult run() {
    const u64 total = extent_.endSector - extent_.startSector + 1;
    const u64 piece = std::max<u64>(1, kPieceBytes / disk_.sectorSize());
    progress_.setTotalBytes(total * disk_.sectorSize());
    while (result_.code == Error::none && result_.sectorsDone < total) {
      if (progress_.isCancelled()) {
        result_.code = Error::cancelled;
        break;
      }
      wipePiece(std::min(piece, total - result_.sectorsDone));
      progress_.setBytesDone(result_.sectorsDone * disk_.sectorSize());
    }
    if (disk_.flush() != Error::none) result_.code = Error::write;
    disk_.dropCaches();
    return result_;
  }

 private:
  void wipePiece(u64 count) {
    const u64 first = extent_.startSector + result_.sectorsDone;
    if (disk_.writeZeros(first, count) != Error::none) {
      if (!ignoreErrors_ && !askToIgnore(context_.ui)) {
        result_.code = Error::write;
        return;
      }
      ignoreErrors_ = true;
      for (u64 lba = first; lba < first + count; ++lba)
        result_.sectorsFailed += disk_.writeZeros(lba, 1) == Error::none ? 0 : 1;
    }
    result_.sectorsDone += count;
  }

  const OperationContext& context_;
  DiskDevice& disk_;
  SectorExtent extent_;
  OperationProgress progress_;
  WipeResult result_;
  bool ignoreErrors_ = false;
};

}  // namespace

WipeResult zeroWipe(const OperationContext& context, DiskDevice& disk, const SectorExtent& extent) {
  return ZeroWiper(context, disk, extent).run();
}

}  // namespace tallowin
