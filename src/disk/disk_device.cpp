#include "disk/disk_device.h"

#include <algorithm>

#include "disk/transfer_buffer.h"

namespace tallowin {

u32 DiskDevice::sectorsPerChunk() const {
  return std::max(u32{1}, traits_.maxTransferBytes / traits_.sectorSizeBytes);
}

template <typename Byte, typename Transfer>
Failure DiskDevice::inChunks(u64 lba, Byte* bytes, u64 count, Transfer transfer) {
  while (count != 0) {
    const u32 chunk = static_cast<u32>(std::min<u64>(count, sectorsPerChunk()));
    if (Failure failed = transfer(lba, bytes, chunk); failed.code != Error::none) {
      if (failed.lba == kNoSector) failed.lba = lba;
      return failed;
    }
    lba += chunk;
    bytes += u64{chunk} * sectorSize();
    count -= chunk;
  }
  return {};
}

Failure DiskDevice::readSectors(u64 lba, void* buffer, u64 count) {
  return inChunks(lba, static_cast<u8*>(buffer), count,
                  [this](u64 at, u8* bytes, u32 chunk) { return transferIn(at, bytes, chunk); });
}

Failure DiskDevice::writeSectors(u64 lba, const void* buffer, u64 count) {
  return inChunks(
      lba, static_cast<const u8*>(buffer), count,
      [this](u64 at, const u8* bytes, u32 chunk) { return transferOut(at, bytes, chunk); });
}

Failure DiskDevice::writeZeros(u64 lba, u64 count) {
  if (count == 0) return {};
  const u64 chunk =
      std::min<u64>({count, sectorsPerChunk(), std::max<u64>(1, 4 * kMiB / sectorSize())});
  const TransferBuffer zeros(chunk * sectorSize());
  if (!zeros) return Error::outOfMemory;
  for (; count != 0; count -= std::min(count, chunk), lba += chunk) {
    const Failure failed = writeSectors(lba, zeros.data(), std::min(count, chunk));
    if (failed.code != Error::none) return failed;
  }
  return {};
}

Failure DiskDevice::clearSectors(u64 lba, u64 count) {
  if (count == 0) return {};
  const std::optional<Failure> cleared = zeroFast(lba, count);
  return cleared ? *cleared : writeZeros(lba, count);
}

void DiskDevice::begin(DiskTransfer& transfer) {
  transfer.failure = transfer.direction == DiskTransfer::Direction::read
                         ? readSectors(transfer.lba, transfer.buffer, transfer.count)
                         : writeSectors(transfer.lba, transfer.buffer, transfer.count);
}

Failure DiskDevice::finish(DiskTransfer& transfer) { return transfer.failure; }

bool DiskDevice::lockForChange() {
  if (lockHolds_ == 0 && !acquireLock()) return false;
  ++lockHolds_;
  return true;
}

void DiskDevice::unlockAfterChange() {
  if (--lockHolds_ == 0) releaseLock();
}

}  // namespace tallowin
