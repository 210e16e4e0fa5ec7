// The base of disks that stand on another disk and change one thing about it.
#pragma once

#include "disk/disk_device.h"

namespace tallowin {

// Forwards everything to `inner`, which it borrows. A derived class overrides the transfers, and
// sees overlapped ones among them: they are carried out where they are finished, the last moment
// that whoever began them has to reckon with. Sectors that are to be cleared arrive as writes of
// zeros, unless it overrides zeroFast too.
class DiskWrapper : public DiskDevice {
 public:
  explicit DiskWrapper(DiskDevice& inner) : DiskDevice(inner.traits()), inner_(inner) {}

  void begin(DiskTransfer&) override {}
  Failure finish(DiskTransfer& transfer) override {
    DiskDevice::begin(transfer);
    return transfer.failure;
  }
  void willRead(u64 lba, u64 count) override { inner_.willRead(lba, count); }
  Failure flush() override { return inner_.flush(); }
  void dropCaches() override { inner_.dropCaches(); }
  void dropCachesOf(u64 lba, u64 count) override { inner_.dropCachesOf(lba, count); }
  Failure checkSameDisk() override { return inner_.checkSameDisk(); }
  std::optional<u64> sectorCount() override { return inner_.sectorCount(); }
  std::optional<DataTrack> lastDataTrack() override { return inner_.lastDataTrack(); }
  std::string displayName() override { return inner_.displayName(); }
  std::string model() override { return inner_.model(); }
  std::string serial() override { return inner_.serial(); }
  bool firmwareGeometry(Geometry& geometry) override { return inner_.firmwareGeometry(geometry); }
  u32 biosNumber() override { return inner_.biosNumber(); }
  KernelTable tellKernel(std::span<const KernelPartition> wanted) override {
    return inner_.tellKernel(wanted);
  }

 protected:
  bool acquireLock() override { return inner_.lockForChange(); }
  void releaseLock() override { inner_.unlockAfterChange(); }
  Failure transferIn(u64 lba, void* buffer, u32 count) override {
    return inner_.readSectors(lba, buffer, count);
  }
  Failure transferOut(u64 lba, const void* buffer, u32 count) override {
    return inner_.writeSectors(lba, buffer, count);
  }

  DiskDevice& inner_;
};

}  // namespace tallowin
