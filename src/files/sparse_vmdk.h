// A monolithic sparse VMDK: grains in the order of their first write, found through a directory
// of tables.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "files/image_container.h"
#include "files/vmdk_record.h"

namespace tallowin {

// New grains go to the end of the file. Their table entries are only in memory until flush()
// writes them between two flushes of the file, new tables before the directory that names them, and
// that before the redundant one. Whenever that stops, a grain is there whole or not at all.
class SparseVmdk final : public ImageContainer {
 public:
  struct Layout {
    u64 capacitySectors = 0;
    u64 grainSectors = 0;
    u64 entriesPerTable = 0;
    bool hasZeroedGrains = false;
    u64 descriptorOffset = 0;  // bytes
    u64 descriptorBytes = 0;
    std::string descriptor;   // the text, without the zeros behind it
    u64 directoryOffset = 0;  // bytes
    std::vector<VmdkEntry> directory;
    u64 redundantOffset = 0;  // bytes; the same for the redundant directory, if there is one
    std::vector<VmdkEntry> redundant;
    u64 endSector = 0;  // one past the last grain, also where the file ends before it
  };

  // Every table of the layout has been checked: its grains lie in the file, and apart.
  SparseVmdk(std::unique_ptr<ImageFile> file, Layout layout);
  ~SparseVmdk() override;

  ImageForm form() const override { return ImageForm::vmdk; }
  u64 sectorCount() const override { return layout_.capacitySectors; }
  std::optional<Geometry> geometry() const override;

  Failure read(u64 sector, std::span<u8> bytes) override;
  Failure write(u64 sector, std::span<const u8> bytes) override;
  Failure clear(u64 sector, u64 count) override;
  Failure flush() override;

 private:
  using Table = std::vector<VmdkEntry>;
  struct Run;

  u64 grainBytes() const { return layout_.grainSectors * kSectorBytes; }
  u64 tableBytes() const { return layout_.entriesPerTable * sizeof(VmdkEntry); }

  template <typename Step>
  Failure forEachRun(u64 sector, u64 count, Step step);
  Failure findRun(u64 sector, u64 count, Run& run);
  Failure table(u64 index, Table*& found);
  Failure entry(u64 grain, u32& fileSector);
  u64 missingGrains(u64 grain) const;

  Failure writeNewGrains(u64 sector, const Run& run, std::span<const u8> bytes);
  Failure appendTable(u64 index);
  Failure writeTables();
  Failure writeDirectory(u64 offset, const std::vector<VmdkEntry>& directory);
  Failure renewContentId();

  Layout layout_;
  std::vector<std::unique_ptr<Table>> tables_;  // by directory index; null: not in memory
  u64 tablesInMemory_ = 0;
  u64 nextOffset_;  // where the file grows
  bool growthFailed_ = false;
  bool contentIdIsNew_ = false;
  std::set<u64> changedTables_;
  bool directoryChanged_ = false;
};

// The geometry of the descriptor's disk data base.
std::optional<Geometry> vmdkGeometry(std::string_view descriptor);

}  // namespace tallowin
