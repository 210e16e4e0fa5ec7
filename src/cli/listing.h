// The rows of a drive as the commands number and print them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/json_writer.h"
#include "ops/file_systems.h"

namespace tallowin {

struct ListedRow {
  enum class Kind { partition, volume, free };
  Kind kind = Kind::partition;
  PartitionEntry* entry = nullptr;  // of the drive's table
  // As scripts name it (Drive::listNumber); of a free block its number among the free blocks,
  // from 1.
  std::optional<u32> number;
};

// Every row in disk order, volumes behind their extended partition.
std::vector<ListedRow> listedRows(Drive& drive);

// A free block by its number, or the largest one; null when there is none.
PartitionEntry* findFreeBlock(Drive& drive, std::optional<u32> number);

// What lies in the partition ("fat16", "ntfs", "ext"); nothing when that is not known.
std::optional<std::string> contentName(const FileSystemKinds& kinds, Drive& drive,
                                       const PartitionEntry& entry);

// What is wrong with the copies of the table, and what to do about it; empty when nothing is.
std::string tableProblemText(Drive& drive);

// gptHealthWord, or "unreadable"; nothing unless the disk has a GPT.
std::optional<std::string> gptHealthFor(const Drive& drive);

// A table for people.
std::string listingText(const FileSystemKinds& kinds, Drive& drive);
// "2: FAT-32 'NAME', sectors 63..16064, 8 MiB".
std::string rowText(const Drive& drive, const ListedRow& row);

// "cylinder/head/sector".
std::string chsText(const ChsAddress& address);
void writeChs(JsonWriter& json, const char* key, const ChsAddress& address);

// The row's members; the object is begun and ended by the caller.
void writeRow(JsonWriter& json, const FileSystemKinds& kinds, Drive& drive, const ListedRow& row);
// The member "partition".
void writePartition(JsonWriter& json, const FileSystemKinds& kinds, Drive& drive,
                    const ListedRow& row);
// The member "rows".
void writeRows(JsonWriter& json, const FileSystemKinds& kinds, Drive& drive);
// "path" to "gpt_health".
void writeDrive(JsonWriter& json, Drive& drive, const std::string& path);

}  // namespace tallowin
