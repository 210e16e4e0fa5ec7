// A disk of this machine: a block device.
#pragma once

#include <memory>
#include <optional>

#include "base/host.h"
#include "disk/drive_list.h"
#include "disk/firmware_geometry.h"

namespace tallowin {

// Two descriptors of one device. Ordinary requests go through the page cache; bulk requests (see
// DiskDevice::kBulkBytes) go past it, and may overlap by begin and finish. Both are coherent:
// before a direct transfer the kernel writes back and drops what its cache holds of the range. All
// its calls are waited for as base/waiting.h says.
class LinuxDisk : public DiskDevice {
 public:
  // `openFlags` as of open(2). Null with errno on failure; a node that does not exist is ENODEV.
  // The host must outlive the disk.
  static std::unique_ptr<LinuxDisk> open(Host& host, const DriveListEntry& entry, int openFlags);
  ~LinuxDisk() override;

  void begin(DiskTransfer& transfer) override;
  Failure finish(DiskTransfer& transfer) override;
  Failure flush() override;
  void dropCaches() override;
  void dropCachesOf(u64 lba, u64 count) override;
  Failure checkSameDisk() override;
  void willRead(u64 lba, u64 count) override {
    if (const auto offset = offsetOf(lba, count))
      host_.willRead(descriptor_, *offset, count * sectorSize());
  }
  std::optional<u64> sectorCount() override;
  std::optional<DataTrack> lastDataTrack() override;
  std::string displayName() override;
  std::string model() override;
  std::string serial() override;
  bool firmwareGeometry(Geometry& geometry) override;
  u32 biosNumber() override;
  KernelTable tellKernel(std::span<const KernelPartition> wanted) override;

  // Whether bulk requests can go past the page cache.
  bool hasBulkPath() const { return direct_ >= 0; }

 protected:
  // Waits half a second for those that look at every disk that appears or changes.
  bool acquireLock() override;
  void releaseLock() override;
  Failure transferIn(u64 lba, void* buffer, u32 count) override;
  Failure transferOut(u64 lba, const void* buffer, u32 count) override;
  std::optional<Failure> zeroFast(u64 lba, u64 count) override;

 private:
  LinuxDisk(Host& host, const DriveListEntry& entry, int descriptor);

  void askSectorSize();
  // 0 when it cannot be found out.
  u64 sizeBytes() const;
  void openDirect(int openFlags);
  bool isOpenedNode(const std::optional<NodeInfo>& node) const;
  // Where a transfer lies in bytes; nothing when that is beyond all offsets.
  std::optional<u64> offsetOf(u64 lba, u64 count) const;
  bool isBulk(const void* buffer, u64 bytes) const;
  Failure move(DiskTransfer::Direction direction, u64 lba, u8* buffer, u32 count);
  i64 moveOnce(DiskTransfer::Direction direction, int descriptor, u8* buffer, std::size_t bytes,
               u64 offset);
  Failure moveBySectors(DiskTransfer::Direction direction, u8* buffer, std::size_t bytes, u64 lba);
  std::optional<u32> submit(const DiskTransfer& transfer, u32 bytes, u64 offset) const;
  const FirmwareDisk& firmwareDisk();
  std::unique_ptr<DiskDevice> openUnderlyingDisk() const;

  Host& host_;
  int descriptor_;   // through the page cache
  u64 openedBytes_;  // the size of that moment
  int direct_ = -1;  // past it; -1 when the device does not take that
  std::optional<FirmwareDisk> firmware_;
};

}  // namespace tallowin
