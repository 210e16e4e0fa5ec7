// The disk or image that a command works on.
#pragma once

#include <memory>

#include "cli/command.h"
#include "cli/listing.h"
#include "cli/read_once_disk.h"
#include "disk/overlay_disk.h"

namespace tallowin {

// `read`: nothing is written, but much is read.
enum class TargetUse { look, read, change };

// Destroyed from the drive down to the disk.
struct Target {
  std::shared_ptr<DiskDevice> disk;      // read-only for looking and for rehearsing
  std::shared_ptr<OverlayDisk> overlay;  // a rehearsal's, which the drive stands on; else null
  std::shared_ptr<ReadOnceDisk> looked;  // what is only looked at; else null
  std::unique_ptr<Drive> drive;
};

// Opens the command's TARGET and reads its table.
CommandResult openTarget(CommandContext& context, TargetUse use, Target& target);

// The same, and the row that --part names. Refuses with the numbers that there are.
CommandResult openPart(CommandContext& context, TargetUse use, Target& target, ListedRow& row);
CommandResult findPart(CommandContext& context, Drive& drive, ListedRow& row);

// Why the free block that the command line names is not there.
CommandResult noFreeBlock(const std::string& path, const std::optional<u32>& wanted,
                          const Drive& drive);

// The result of a command whose change ended with `result`. After a rehearsed change: reads the
// table back, checks that it has no more errors than before, and says what would have been written.
CommandResult endChange(CommandContext& context, Target& target, bool hadErrors,
                        CommandResult result);

}  // namespace tallowin
