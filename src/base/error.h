// The system's error codes: small integers, 0 meaning success, shared by all engines.
#pragma once

#include "base/types.h"

namespace tallowin {

// Two names with one number are two meanings of the same code in different families; which
// one a function answers is stated where it is declared. `cancelled` is never shown.
// The layout by hand: the tool takes the attribute for the end of the declaration.
// clang-format off
enum class [[nodiscard]] Error : u32 {
  none = 0,
  cancelled = 1,
  outOfMemory = 2,
  read = 3,
  write = 4,
  fileSystemUnreadable = 5,
  cannotOpenForReading = 6,
  noSuchFile = 8,
  gptSignature = 8,  // or the checksum of the header
  tableNotUpdated = 9,
  unsupportedFileSystem = 10,
  outsideUsableArea = 11,
  invalidSizeForType = 13,
  backupOverlaps = 13,  // the backup table would lie in the usable area
  invalidVolume = 15,
  sizeNotPossible = 16,
  deviceNotOpened = 17,
  diskSizeUnknown = 17,
  writeFailed = 18,
  sectorReadFailed = 18,     // identification
  geometryNotAvailable = 18,  // opening a drive
  noSpaceLeft = 32,
  bufferTooSmall = 61,
  fileTooLarge = 63,
  entriesDoNotFit = 63,
  unknownDriveClass = 63,
  imageTableFull = 63,
  partitionBeyondTable = 63,  // a table of the wanted kind cannot hold its sectors
  notThisFormat = 64,
  tooManyOpenDrives = 65,
  noFreeEntry = 65,
  tooManyPartitions = 65,
  lockNotMade = 68,
  backupWriteFailed = 71,
  slotNotFree = 71,
  sectorSizeDiffers = 73,
  unsupportedForm = 76,
  gptRevision = 76,
  dynamicDisk = 76,
  cannotCreate = 77,
  tableNotBuilt = 77,
  seekFailed = 78,
  scanStopped = 86,
  notAFileSystem = 89,
  noTable = 89,
  corrupt = 94,
  gptTableCheck = 94,
  tableReadFailed = 98,
  clearingFailed = 99,
  tableWriteFailed = 99,
  // Partition tables. `read` and `write` mean that the old table stands.
  tableUnreadable = 200,          // a table is there, but no copy of it can be read
  tableInError = 201,             // the entry, its container or its chain is marked as in error
  tableChangedMeanwhile = 202,    // the table on disk is not the one that was read
  writeFailedNewTable = 203,      // a write or flush failed, yet the new table is on the disk
  writeFailedTableUnknown = 204,  // and which table is on the disk could not be found out
  backupOfOtherDisk = 205,
  sectorsInUse = 206,  // sectors that would be overwritten hold something of another program
};
// clang-format on

constexpr u32 codeOf(Error error) { return static_cast<u32>(error); }

// An error with the phase in which a long operation stopped.
struct [[nodiscard]] Outcome {
  Error code = Error::none;
  u32 phase = 0;

  bool ok() const { return code == Error::none; }
};

}  // namespace tallowin
