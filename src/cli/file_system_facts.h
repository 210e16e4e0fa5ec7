// What `info` and `format` tell of a file system.
#pragma once

#include <string>

#include "cli/json_writer.h"
#include "ops/file_systems.h"
#include "ops/operation_context.h"

namespace tallowin {

// With its clusters counted, and its label as the driver reads it. invalidVolume: nothing that can
// be read so lies in the entry, or it is damaged; else as FileSystemKind::facts and open.
Failure readFileSystemFacts(const OperationContext& context, Drive& drive,
                            const PartitionEntry& entry, FileSystemFacts& facts);

std::string factsText(const FileSystemFacts& facts);
// The member "file_system".
void writeFacts(JsonWriter& json, const FileSystemFacts& facts);

}  // namespace tallowin
