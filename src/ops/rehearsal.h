// A rehearsal: the operation itself, on a copy of the disk that only it sees.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "disk/overlay_disk.h"
#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// Whether the drive stands on a rehearsal's disk.
bool isRehearsal(Drive& drive);

// Contents beyond what memory takes go to a file without a name in the state folder.
std::shared_ptr<OverlayDisk> rehearsalDisk(const ProgramFolders& folders, DiskDevice& disk);

// What became of the partition that starts there: what a check of its file system says, a sentence.
// Empty: it cannot be checked by this version.
std::string checkedText(const OperationContext& context, Drive& drive, u64 startSector);
// How much would be written, and about how long that takes on this disk, a sentence: it reads some
// of the disk to find that out.
std::string effortText(const OperationContext& context, OverlayDisk& overlay, DiskDevice& disk);

struct Rehearsal {
  std::string title;    // of the message that tells what it came to
  u64 startSector = 0;  // of the partition
  u64 startAfter = 0;   // of what it becomes
};

// Runs `change`, told like the operation itself, then checks the result and compares all files, and
// tells that with what would be written. Nothing reaches the disk.
using RehearsedChange = std::function<FlowResult(const OperationContext& context, Drive& drive)>;
void rehearse(const OperationContext& context, Drive& drive, const Rehearsal& rehearsal,
              const RehearsedChange& change);

}  // namespace tallowin
