// The kinds of file systems of this program, and how they are asked about a drive's partitions.
#pragma once

#include "probe/file_system_kind.h"
#include "ptable/drive.h"
#include "settings/options.h"

namespace tallowin {

// All kinds that the folders below have. To be called once, by whoever starts; kept in the session.
FileSystemKinds registeredFileSystems();

SectorRange rangeOf(Drive& drive, const PartitionEntry& entry);

// The kind that the partition is formatted as: by its type, else by what the table of a GPT says.
// Null when neither says one.
const FileSystemKind* kindOf(const FileSystemKinds& kinds, const PartitionEntry& entry);

// By what lies in it: a type may say too little, or something else. Else as kindOf.
const FileSystemKind* kindIn(const FileSystemKinds& kinds, Drive& drive,
                             const PartitionEntry& entry);

// Whether the partition holds nothing that is recognised and its type leaves the kind to the user.
bool mayHoldAnyKind(const FileSystemKinds& kinds, const PartitionEntry& entry);

// The label of the file system in the range, as its driver reads it. Empty when there is none, or
// it cannot be read.
std::string labelIn(const FileSystemKind& kind, const SectorRange& range, u16 type, u32 codePage);

// Names entries by the labels of their file systems. Both are borrowed for the reader's life.
LabelReader labelReaderOf(const FileSystemKinds& kinds, const Options& options);

}  // namespace tallowin
