// Changing the kind of a disk's partition table.
#pragma once

#include "ops/operation_context.h"
#include "ptable/drive.h"

namespace tallowin {

// Asks for the new kind, as far as there is a choice, changes the disk to it, and says how to undo
// that.
FlowResult changeDiskTypeFlow(const OperationContext& context, Drive& drive);

// Changes the disk to `target` after a confirmation. A disk without a table becomes an empty MBR
// disk; that is the only target for it. Done at once when the disk has the kind already.
// refused: with the reason told, nothing was changed. failed: which table stands was told.
// `keptTable` receives the file with the old table; it stays empty when nothing was kept.
FlowResult convertFlow(const OperationContext& context, Drive& drive, Scheme target,
                       std::string& keptTable);

// How the change of `disk` is undone, for the user.
std::string undoText(const std::string& disk, const std::string& keptTable);

// When Create finds all slots in use: asks, and makes an EMBR. Anything but done was told.
FlowResult offerEmbr(const OperationContext& context, Drive& drive);

// Limits the primaries of an EMBR drive to the four slots of the MBR, or lifts the limit; the
// caller tells the user. Errors as for Drive::setLimitPrimaries, and why the change could not
// begin.
Failure limitPrimaries(const OperationContext& context, Drive& drive, bool limit);

}  // namespace tallowin
