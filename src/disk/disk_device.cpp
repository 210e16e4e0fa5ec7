#include "disk/disk_device.h"

#include <algorithm>
#include <csignal>

#include "disk/transfer_buffer.h"

namespace tallowin {
namespace {

volatile std::sig_atomic_t inSystemCall = 0;

}  // namespace

bool DiskDevice::isInSystemCall() { return inSystemCall != 0; }

DiskDevice::SystemCallScope::SystemCallScope() { inSystemCall = 1; }
DiskDevice::SystemCallScope::~SystemCallScope() { inSystemCall = 0; }

u32 DiskDevice::sectorsPerChunk() const {
  return std::max(u32{1}, traits_.maxTransferBytes / traits_.sectorSizeBytes);
}

template <typename Byte, typename Transfer>
bool DiskDevice::inChunks(u64 lba, Byte* bytes, u64 count, Transfer transfer) {
  while (count != 0) {
    const u32 chunk = static_cast<u32>(std::min<u64>(count, sectorsPerChunk()));
    if (!transfer(lba, bytes, chunk)) return false;
    lba += chunk;
    bytes += u64{chunk} * sectorSize();
    count -= chunk;
  }
  return true;
}

bool DiskDevice::readSectors(u64 lba, void* buffer, u64 count) {
  return inChunks(lba, static_cast<u8*>(buffer), count,
                  [this](u64 at, u8* bytes, u32 chunk) { return transferIn(at, bytes, chunk); });
}

bool DiskDevice::writeSectors(u64 lba, const void* buffer, u64 count) {
  return inChunks(
      lba, static_cast<const u8*>(buffer), count,
      [this](u64 at, const u8* bytes, u32 chunk) { return transferOut(at, bytes, chunk); });
}

bool DiskDevice::writeZeros(u64 lba, u64 count) {
  if (count == 0 || zeroFast(lba, count)) return true;
  const u32 chunk = static_cast<u32>(
      std::min<u64>({count, sectorsPerChunk(), std::max<u64>(1, 4 * kMiB / sectorSize())}));
  const TransferBuffer zeros(std::size_t{chunk} * sectorSize());
  if (!zeros) return false;
  while (count != 0) {
    const u32 piece = static_cast<u32>(std::min<u64>(count, chunk));
    if (!transferOut(lba, zeros.data(), piece)) return false;
    lba += piece;
    count -= piece;
  }
  return true;
}

void DiskDevice::begin(DiskTransfer& transfer) {
  transfer.ok = transfer.direction == DiskTransfer::Direction::read
                    ? readSectors(transfer.lba, transfer.buffer, transfer.count)
                    : writeSectors(transfer.lba, transfer.buffer, transfer.count);
}

bool DiskDevice::finish(DiskTransfer& transfer) { return transfer.ok; }

}  // namespace tallowin
