// A directory of a FAT volume, held whole in memory until its changed sectors are written.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "fat/fat_chain.h"
#include "fat/fat_names.h"

namespace tallowin {

class FatDirectory {
 public:
  // `firstCluster` 0: the root, also of a FAT32. corrupt: its chain is broken, or it has more
  // entries than a directory can have; read.
  static Failure read(const FatVolume& volume, FatClusters& clusters, u32 firstCluster,
                      const FatCodePage& codePage, std::shared_ptr<FatDirectory>& directory);
  // An empty one in a new cluster, with "." and "..".
  static std::shared_ptr<FatDirectory> create(const FatVolume& volume, u32 cluster, u32 parent,
                                              const FatDirectoryEntryRecord& times,
                                              const FatCodePage& codePage);

  u32 firstCluster() const { return id_; }  // 0: the root
  u32 size() const { return static_cast<u32>(bytes_.size() / sizeof(FatDirectoryEntryRecord)); }
  const FatChain& chain() const { return chain_; }

  // Entries by their number in the directory.
  const FatDirectoryEntryRecord& entry(u32 index) const;
  // To be changed, but for its name.
  FatDirectoryEntryRecord& change(u32 index);

  // The first entry from `from` on that is in use and no long name, label, "." or "..".
  std::optional<u32> nextEntry(u32 from) const;
  std::optional<u32> label() const;
  // The label of a volume, read no farther than that. False: there is none.
  static Failure findLabel(const FatVolume& volume, FatClusters& clusters,
                           FatDirectoryEntryRecord& label, bool& found);
  // By long or short name, in any case.
  std::optional<u32> find(std::u16string_view name) const;
  // Empty when it has none.
  std::u16string longNameOf(u32 index) const;
  std::u16string nameOf(u32 index) const;

  // `replaces` is an entry whose short name it may have.
  FatNewName newNameFor(std::u16string_view longName,
                        std::optional<u32> replaces = std::nullopt) const;
  // With the name and everything else of `record`. directoryFull, volumeFull: all is as before.
  // FatClusters::prepare has to come first.
  Failure add(const FatNewName& name, const FatDirectoryEntryRecord& record, FatClusters& clusters,
              u32& index);
  // The entry and its long name.
  void remove(u32 index);
  // Puts the entry under another name without moving it, so that no moment has it twice or not at
  // all; its long name is lost if not all of several sectors arrive. False when the new name needs
  // more room than the old one, or several sectors.
  enum class Within { oneSector, severalSectors };
  bool renameInPlace(u32 index, std::u16string_view newName, Within within);

  bool isChanged() const { return !changedSectors_.empty(); }
  // Those of clusters that are still free on the disk, or the others.
  enum class Part { ofNewClusters, ofOldClusters };
  Failure write(const FatClusters& clusters, Part part, bool& wrote);

 private:
  FatDirectory(const FatVolume& volume, u32 id, const FatCodePage& codePage)
      : volume_(volume), codePage_(codePage), id_(id) {}

  Failure readBytes();
  void forgetBehindEnd();
  void buildIndex();
  void index(u32 at);
  u32 firstPartOf(u32 index) const;
  bool isFree(u32 index) const;
  std::optional<u32> roomFor(u32 count);
  Failure grow(u32 entries, FatClusters& clusters);
  void place(u32 first, const FatNewName& name, const FatDirectoryEntryRecord& record);
  void markChanged(u32 index);
  u32 entriesPerSector() const;
  u32 sectorOf(u32 index) const { return index / entriesPerSector(); }
  u64 lbaOf(u32 sector) const;
  u32 clusterOf(u32 sector) const;

  const FatVolume& volume_;
  FatCodePage codePage_;
  u32 id_;
  FatChain chain_;  // empty: the fixed root
  std::vector<u8> bytes_;
  u32 end_ = 0;  // number of the entry behind which nothing is in use
  std::set<u32> changedSectors_;
  // Upper case, to the number of the entry.
  std::unordered_map<std::u16string, u32> names_;
  bool hasSameNames_ = false;
  // No run of so many free entries begins before it.
  u32 searchLength_ = 1;
  u32 searchFrom_ = 0;
  std::unordered_map<std::string, u32> lastNumbers_;  // of names that were given, by their stem
};

}  // namespace tallowin
