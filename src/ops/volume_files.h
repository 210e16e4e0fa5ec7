// The files of a partition, reached by a flow.
#pragma once

#include <functional>

#include "fs/mount_table.h"
#include "fs/tree_walk.h"
#include "ops/file_systems.h"
#include "ops/table_change.h"
#include "settings/options.h"

namespace tallowin {

enum class FilesUse : u8 { look, change };

// How this program opens the files of a volume, by its settings.
OpenWish openWishOf(const OperationContext& context, FilesUse use);

// The files of a partition for one flow: what is to be changed has the shared beginning of every
// operation that writes, and ends on the medium.
class VolumeFiles {
 public:
  VolumeFiles(const OperationContext& context, Drive& drive) : context_(context), drive_(drive) {}

  // Nothing: go on. Else the reason was told, and nothing was changed.
  std::optional<FlowResult> open(const PartitionEntry& entry, FilesUse use);
  FileSystem& files() const { return mount_.files(); }
  // Everything is on the medium then, and no cache holds what was there before; or the failure says
  // why not. What was not changed needs no end.
  Failure end();

 private:
  FlowResult refuse(const PartitionEntry& entry, const Failure& failure) const;

  const OperationContext& context_;
  Drive& drive_;
  std::optional<DiskWriteScope> scope_;
  Mount mount_;
  SectorExtent extent_;
};

// Works with the files of a partition; a failure is told with its path, a stop is not.
using FilesWork = std::function<FileFailure(FileSystem& files, Job& job)>;
FlowResult lookAtFiles(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                       const FilesWork& work);
// The same with a change. What the work did before it failed stays, and is put in order.
FlowResult changeFiles(const OperationContext& context, Drive& drive, const PartitionEntry& entry,
                       const FilesWork& work);

// Deletes a file, or a directory with everything in it when that is wanted; asks first, with what
// would be lost.
enum class RemoveWhat : u8 { file, tree };
FlowResult removeFilesFlow(const OperationContext& context, Drive& drive,
                           const PartitionEntry& entry, const std::string& path, RemoveWhat what);

}  // namespace tallowin
