// A VHD that grows: blocks in the order of their first write, and a table that says where.
#pragma once

#include <set>
#include <vector>

#include "files/image_container.h"
#include "files/vhd_bitmaps.h"
#include "files/vhd_record.h"

namespace tallowin {

std::optional<Geometry> vhdGeometry(const VhdFooter& footer);
// Sectors of the disk: whole cylinders of the footer's geometry when it states one.
u64 vhdSectorCount(const VhdFooter& footer);

//   footer's copy | header | table | bitmap, block | bitmap, block | ... | room | footer
//
// New blocks begin at multiples of kDataAlignment, which keeps them fit for direct I/O, and their
// bitmaps directly before them; what that leaves over is zeros.
//
// The footer must stay the last thing in the file, and a block must lie whole before the table
// names it. So the footer is first put some way behind the end and flushed, which makes room (a
// hole, zeros for nothing); blocks are written into the room, each once; and flush() writes the
// table's entries between two flushes of the file, with the footer directly behind the last block,
// and cuts what is left of the room. Whenever that stops, the image opens, and a block is there
// whole or not at all.
class DynamicVhd final : public ImageContainer {
 public:
  struct Layout {
    VhdFooter footer;
    u64 sectorCount = 0;
    u32 blockSectors = 0;
    u64 tableOffset = 0;
    std::vector<VhdTableEntry> table;  // an entry for each block of the disk
  };

  DynamicVhd(std::unique_ptr<ImageFile> file, Layout layout);
  ~DynamicVhd() override;

  ImageForm form() const override { return ImageForm::vhd; }
  u64 sectorCount() const override { return layout_.sectorCount; }
  std::optional<Geometry> geometry() const override { return vhdGeometry(layout_.footer); }

  Failure read(u64 sector, std::span<u8> bytes) override;
  Failure write(u64 sector, std::span<const u8> bytes) override;
  Failure clear(u64 sector, u64 count) override;
  Failure flush() override;

 private:
  struct Run;
  template <typename Step>
  Failure forEachRun(u64 sector, u64 count, Step step);

  static constexpr u64 kDataAlignment = 4096;

  u64 blockBytes() const { return u64{layout_.blockSectors} * kSectorBytes; }
  // Of a new block that takes the file from `offset` on: where its data begins, and where the
  // block ends that is the `count`-th from there.
  u64 newDataOffset(u64 offset) const;
  u64 endOfBlocks(u64 offset, u64 count) const;
  bool isAllocated(u64 block) const { return layout_.table[block] != kVhdNotAllocated; }
  u64 bitmapOffset(u64 block) const { return u64{layout_.table[block]} * kSectorBytes; }
  u64 dataOffset(const Run& run) const;

  Failure writeNewBlock(const Run& run, std::span<const u8> bytes);
  Failure writeBlockAt(u64 dataOffset, const Run& run, std::span<const u8> bytes);
  Failure makeRoom();
  bool hasRoom() const { return footerOffset_ != nextBlockOffset_ || growthFailed_; }
  Failure writeFooter();
  Failure cutRoom();
  Failure writeTable();

  Layout layout_;
  VhdBitmaps bitmaps_;
  u64 nextBlockOffset_;
  u64 footerOffset_;
  u64 unallocatedBlocks_;
  bool growthFailed_ = false;          // what lies in the room is unknown
  std::set<u64> changedTableSectors_;  // entries that only memory has, by their sector
};

}  // namespace tallowin
