// A new entry in the table, whatever flow wants it.
#pragma once

#include "ops/operation_context.h"
#include "ops/table_change.h"
#include "ptable/drive.h"

namespace tallowin {

// The flags of a new entry of an EMBR.
inline constexpr u64 kNewEmbrEntryFlags = 0x2000;

// Asks, under `title`, whether something of another program may be written over for the entry,
// which Drive::add refused with sectorsInUse.
bool insistsOnOverwriting(const OperationContext& context, Drive& drive, const NewEntry& entry,
                          const char* title);

// Writes the entry within `change`. Asks, under `title`, before the table is written over something
// of another program. Errors of Drive::add; sectorsInUse: the user did not want that, or it could
// no longer be done when the answer came, which was told.
Failure addEntry(const OperationContext& context, TableChange& change, Drive& drive,
                 const NewEntry& entry, const char* title);

}  // namespace tallowin
