// A disk in memory, sparse: only what was written takes room.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "disk/disk_device.h"

namespace tallowin {

class MemoryDisk : public DiskDevice {
 public:
  MemoryDisk(u64 sectors, u32 sectorSizeBytes = 512);

  Failure flush() override { return {}; }
  std::optional<u64> sectorCount() override { return sectors_; }
  bool firmwareGeometry(Geometry& geometry) override {
    geometry = geometry_;
    return true;
  }
  u32 biosNumber() override { return biosNumber_; }

  void setGeometry(Geometry geometry) { geometry_ = geometry; }
  void setBiosNumber(u32 number) { biosNumber_ = number; }
  void setName(std::string name) { traits_.path = std::move(name); }

  std::vector<u8> sector(u64 lba);
  void setSector(u64 lba, std::span<const u8> bytes);
  // Calls use(byte offset, bytes) for every piece that was ever written, in order.
  template <typename Use>
  void forEachData(Use use) const {
    for (const auto& [page, bytes] : pages_) use(page * kPageBytes, std::span<const u8>(*bytes));
  }
  // Same size and same bytes everywhere.
  bool sameContent(const MemoryDisk& other) const;
  // Cheap: what neither disk has written since is shared.
  MemoryDisk copy() const;
  MemoryDisk(MemoryDisk&& other) noexcept;

 protected:
  Failure transferIn(u64 lba, void* buffer, u32 count) override;
  Failure transferOut(u64 lba, const void* buffer, u32 count) override;
  std::optional<Failure> zeroFast(u64 lba, u64 count) override;

 private:
  static constexpr u64 kPageBytes = 64 * kKiB;
  using Page = std::shared_ptr<std::vector<u8>>;

  // The bytes of a page that this disk has alone.
  static u8* own(Page& page);
  bool inside(u64 lba, u64 count) const { return lba <= sectors_ && count <= sectors_ - lba; }

  u64 sectors_;
  Geometry geometry_{1023, 254, 63};
  u32 biosNumber_ = 0x80;
  std::map<u64, Page> pages_;  // by page number; never null
};

}  // namespace tallowin
