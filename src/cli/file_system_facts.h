// What `info` and `format` tell of a file system.
#pragma once

#include <string>

#include "cli/json_writer.h"
#include "ops/file_systems.h"

namespace tallowin {

// With its clusters counted. invalidVolume: nothing that can be read so lies in the entry, or it
// is damaged; else as FileSystemKind::facts.
Failure readFileSystemFacts(const FileSystemKinds& kinds, Drive& drive, const PartitionEntry& entry,
                            FileSystemFacts& facts);

std::string factsText(const FileSystemFacts& facts);
// The member "file_system".
void writeFacts(JsonWriter& json, const FileSystemFacts& facts);

}  // namespace tallowin
