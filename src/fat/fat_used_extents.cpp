#include "fat/fat_used_extents.h"

#include "fat/fat_directory.h"
#include "fat/fat_links.h"
#include "fs/names.h"

namespace tallowin {
namespace {

class UsedExtents {
 public:
  UsedExtents(const SectorRange& range, const UsedExtentsWish& wish, ExtentList& extents)
      : range_(range), wish_(wish), extents_(extents) {}

  Failure run(u16 type) {
    if (const Failure failed = openFat(range_, type, volume_))
      return failed == Error::invalidVolume ? failed.as(Error::fileSystemUnreadable) : failed;
    if (const Failure failed = links_.read(*volume_)) return failed;
    const FatLayout& layout = volume_->layout;
    if (const Failure failed = extents_.add(range_.firstSector, layout.firstDataSector()))
      return failed;
    for (u32 cluster = 2; cluster <= links_.highestCluster(); ++cluster)
      if (links_.isInUse(cluster))
        if (const Failure failed = extents_.add(lbaOf(cluster), layout.sectorsPerCluster))
          return failed;
    if (const Failure failed = addTail()) return failed;
    return markFiles();
  }

 private:
  u64 lbaOf(u32 cluster) const {
    return range_.firstSector + volume_->layout.clusterToSector(cluster);
  }

  // What lies behind the last cluster.
  Failure addTail() {
    const u64 end = lbaOf(volume_->layout.highestCluster() + 1);
    if (!wish_.includeTail || end >= range_.endSector()) return {};
    return extents_.add(end, range_.endSector() - end);
  }

  Failure markFiles() {
    if (wish_.skipPageFile) mark("pagefile.sys", ExtentClass::pageFile);
    if (wish_.skipHibernationFile) mark("hiberfil.sys", ExtentClass::hibernationFile);
    if (wish_.skipSwapFile) mark("swapfile.sys", ExtentClass::swapFile);
    for (const std::string& path : wish_.exclusions) mark(path, ExtentClass::excludedFile);
    return failure_;
  }

  // A file that is not there is no error.
  void mark(std::string_view path, ExtentClass kind) {
    FatClusters clusters(*volume_);
    u32 at = 0;
    for (const std::string_view name : componentsOf(path)) {
      std::shared_ptr<FatDirectory> directory;
      if (FatDirectory::read(*volume_, clusters, at, FatCodePage(437), directory)) return;
      const auto found = directory->find(utf16Of(name).value_or(u""));
      if (!found) return;
      at = firstClusterOf(directory->entry(*found), volume_->layout.isFat32());
      if (!links_.isCluster(at)) return;
    }
    // A chain that loops marks what is marked already.
    u32 steps = 0;
    for (u32 cluster = at; cluster != 0 && steps++ <= links_.highestCluster() && !failure_;
         cluster = links_.next(cluster))
      failure_ = extents_.mark(lbaOf(cluster), volume_->layout.sectorsPerCluster, kind);
  }

  const SectorRange& range_;
  const UsedExtentsWish& wish_;
  ExtentList& extents_;
  std::optional<FatVolume> volume_;
  FatLinks links_;
  Failure failure_;
};

}  // namespace

Failure fatUsedExtents(const SectorRange& range, u16 type, const UsedExtentsWish& wish,
                       ExtentList& extents) {
  return UsedExtents(range, wish, extents).run(type);
}

}  // namespace tallowin
