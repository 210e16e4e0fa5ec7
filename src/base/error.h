// What went wrong, as one small value from the device to the words.
#pragma once

#include <cerrno>

#include "base/types.h"

namespace tallowin {

// One meaning each. The number that is published for it stands in codeOf; numbers are shared by
// families that grew apart, so only the name tells one from the other.
enum class Error : u8 {
  none,
  cancelled,  // by the user; never shown
  outOfMemory,
  // Devices and files. `Failure::systemError` has the reason.
  read,
  write,
  flush,          // what was written may not be on the medium
  noSpaceLeft,    // on the medium that holds the image
  journalFailed,  // it could not be written; what it was to keep was not overwritten
  cannotOpenForReading,
  cannotCreate,
  noSuchFile,
  deviceNotOpened,
  deviceChanged,  // the path names another device or file by now, or it was cut
  diskSizeUnknown,
  geometryNotAvailable,
  unknownDriveClass,
  tooManyOpenDrives,
  imageTableFull,
  lockNotMade,  // another program holds the disk
  readOnlyDisk,
  seekFailed,  // a file ends too early
  bufferTooSmall,
  fileTooLarge,
  notThisFormat,
  unsupportedForm,
  corrupt,
  // Partition tables. Where nothing else is said, the old table stands.
  gptSignature,  // or the checksum of the header
  gptRevision,
  gptTableCheck,
  backupOverlaps,  // the backup table would lie in the usable area
  backupWriteFailed,
  sectorSizeDiffers,
  tableNotUpdated,
  tableNotBuilt,
  noRoomForReserved,  // the reserved partition of a GPT
  tableReadFailed,
  tableWriteFailed,
  noTable,
  noFreeEntry,
  tooManyPartitions,
  entriesDoNotFit,
  partitionBeyondTable,  // a table of the wanted kind cannot hold its sectors
  slotNotFree,
  outsideUsableArea,
  dynamicDisk,
  tableUnreadable,         // a table is there, but no copy of it can be read
  tableInError,            // the entry, its container or its chain is marked as in error
  tableChangedMeanwhile,   // the table on disk is not the one that was read
  targetInUse,             // mounted, swapped on or held since it was looked at
  volumeChangedMeanwhile,  // the file system is not as it was when it was looked at
  unfinishedWork,          // of an operation that was killed has to be ended first
  invalidWipePattern,
  wipeMismatch,             // what was read back is not what was written
  noUnfinishedWork,         // there is nothing to continue or to undo
  writeFailedNewTable,      // a write or flush failed, yet the new table is on the disk
  writeFailedTableUnknown,  // and which table is on the disk could not be found out
  backupOfOtherDisk,
  sectorsInUse,  // sectors that would be overwritten hold something of another program
  // File systems.
  fileSystemUnreadable,
  unsupportedFileSystem,
  invalidSizeForType,
  invalidVolume,
  sizeNotPossible,
  notAFileSystem,
  scanStopped,
  clearingFailed,
  // Files inside a file system.
  invalidName,  // or an argument that makes no sense
  nameTooLong,
  alreadyExists,
  directoryNotEmpty,
  directoryFull,  // it cannot grow
  volumeFull,
  tooManyOpenFiles,
  tooManyMounts,
  accessDenied,  // read-only, of the other kind, or in use
  // Files of the host that are copied into one.
  specialFile,  // a symbolic link, a device, a pipe
  nameNotUtf8,
  sameName,  // as another one beside it, where case does not count
};

// The published number. Numbers are never given anew.
constexpr u32 codeOf(Error error) {
  switch (error) {
    case Error::none:
      return 0;
    case Error::cancelled:
      return 1;
    case Error::outOfMemory:
      return 2;
    case Error::read:
      return 3;
    case Error::write:
    case Error::flush:
    case Error::journalFailed:
      return 4;
    case Error::fileSystemUnreadable:
      return 5;
    case Error::cannotOpenForReading:
      return 6;
    case Error::noSuchFile:
    case Error::directoryFull:
    case Error::gptSignature:
      return 8;
    case Error::tableNotUpdated:
      return 9;
    case Error::unsupportedFileSystem:
      return 10;
    case Error::outsideUsableArea:
      return 11;
    case Error::directoryNotEmpty:
      return 12;
    case Error::invalidSizeForType:
    case Error::backupOverlaps:
    case Error::invalidName:
    case Error::nameNotUtf8:
      return 13;
    case Error::invalidVolume:
      return 15;
    case Error::sizeNotPossible:
      return 16;
    case Error::deviceNotOpened:
    case Error::deviceChanged:
    case Error::diskSizeUnknown:
      return 17;
    case Error::geometryNotAvailable:
      return 18;
    case Error::noSpaceLeft:
    case Error::volumeFull:
    case Error::noRoomForReserved:
      return 32;
    case Error::invalidWipePattern:
    case Error::bufferTooSmall:
      return 61;
    case Error::fileTooLarge:
    case Error::entriesDoNotFit:
    case Error::unknownDriveClass:
    case Error::imageTableFull:
    case Error::partitionBeyondTable:
      return 63;
    case Error::notThisFormat:
      return 64;
    case Error::tooManyOpenDrives:
    case Error::tooManyOpenFiles:
    case Error::tooManyMounts:
    case Error::noFreeEntry:
    case Error::tooManyPartitions:
      return 65;
    case Error::lockNotMade:
    case Error::readOnlyDisk:
      return 68;
    case Error::backupWriteFailed:
    case Error::slotNotFree:
      return 71;
    case Error::wipeMismatch:
    case Error::sectorSizeDiffers:
      return 73;
    case Error::accessDenied:
      return 75;
    case Error::unsupportedForm:
    case Error::gptRevision:
    case Error::dynamicDisk:
    case Error::specialFile:
      return 76;
    case Error::cannotCreate:
    case Error::tableNotBuilt:
      return 77;
    case Error::seekFailed:
      return 78;
    case Error::nameTooLong:
      return 84;
    case Error::scanStopped:
      return 86;
    case Error::alreadyExists:
    case Error::sameName:
      return 87;
    case Error::notAFileSystem:
    case Error::noTable:
      return 89;
    case Error::corrupt:
    case Error::gptTableCheck:
      return 94;
    case Error::tableReadFailed:
      return 98;
    case Error::clearingFailed:
    case Error::tableWriteFailed:
      return 99;
    case Error::tableUnreadable:
      return 200;
    case Error::tableInError:
      return 201;
    case Error::tableChangedMeanwhile:
      return 202;
    case Error::writeFailedNewTable:
      return 203;
    case Error::writeFailedTableUnknown:
      return 204;
    case Error::backupOfOtherDisk:
      return 205;
    case Error::sectorsInUse:
      return 206;
    case Error::targetInUse:
    case Error::unfinishedWork:
    case Error::noUnfinishedWork:
      return 207;
    case Error::volumeChangedMeanwhile:
      return 210;
  }
  return kAllOnes32;  // no enumerator
}

inline constexpr u64 kNoSector = kAllOnes64;

// Empty: all is well. True: failed, as in `if (const Failure failed = disk.flush()) return
// failed;`. The layout by hand: the tool takes the attribute for the end of the declaration.
// clang-format off
struct [[nodiscard]] Failure {
  Error code = Error::none;
  int systemError = 0;   // errno of the call that failed, else 0
  u64 lba = kNoSector;   // the first sector that is concerned
  u32 phase = 0;         // of a long operation

  constexpr Failure() = default;
  constexpr Failure(Error error, int errorNumber = 0, u64 sector = kNoSector)  // NOLINT(google-explicit-constructor)
      : code(error), systemError(errorNumber), lba(sector) {}

  constexpr explicit operator bool() const { return code != Error::none; }
  // What holds the image or the file is full; the medium itself has no fault.
  constexpr bool isOutOfSpace() const {
    return code == Error::noSpaceLeft ||
           (code != Error::none &&
            (systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG));
  }
  // The same event under the name that the caller's contract gives it; stays empty when empty.
  constexpr Failure as(Error name) const {
    Failure renamed = *this;
    if (code != Error::none) renamed.code = name;
    return renamed;
  }
  constexpr Failure inPhase(u32 number) const {
    Failure placed = *this;
    placed.phase = number;
    return placed;
  }
  friend constexpr bool operator==(const Failure& failure, Error error) {
    return failure.code == error;
  }
  friend constexpr bool operator==(const Failure&, const Failure&) = default;
};
// clang-format on

constexpr u32 codeOf(const Failure& failure) { return codeOf(failure.code); }

}  // namespace tallowin
