// Writing an edited boot sector: the same from the window and from the command line.
#pragma once

#include "ops/operation_context.h"
#include "ptable/mbr/mbr_editor.h"

namespace tallowin {

// Said before a GPT place holder is deleted or overwritten.
inline constexpr const char* kPlaceHolderWarning =
    "Deleting this GPT place holder will cause the disk partitioning to\n"
    "revert to using the MBR.  Any partition not in the MBR will be lost.";

// True at once for a slot that holds no place holder; else it has to be insisted on.
bool mayGiveUpSlot(FrontEnd& ui, const MbrEditor& editor, std::size_t slot);

// A disk signature as it is typed: decimal, 0x hexadecimal or 0 octal; empty is 0. Nothing for
// what is no number of 32 bits.
std::optional<u32> parseSignature(std::string_view text);

// Locks the disk, keeps the old table, applies the copy, and reads the drive again: entries on
// hand are stale afterwards. `keptTable` receives the file with the old table; it stays empty when
// nothing was kept.
FlowResult applyMbrEdit(const OperationContext& context, Drive& drive, MbrEditor& editor,
                        std::string& keptTable);

}  // namespace tallowin
