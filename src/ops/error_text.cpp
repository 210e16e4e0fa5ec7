#include "ops/error_text.h"

#include <cstring>

#include "base/text.h"

namespace tallowin {
namespace {

// The sentence of an error: what happened, and what to do next.
struct Words {
  const char* what;
  const char* next;
};

Words wordsOf(Error error) {
  switch (error) {
    case Error::none:
    case Error::cancelled:
      return {"", ""};
    case Error::outOfMemory:
      return {"Insufficent memory to complete operation", "End other programs and try again."};
    case Error::read:
      return {"The disk could not be read", "Look for its errors in the kernel's log."};
    case Error::write:
      return {"The disk could not be written", "Look for its errors in the kernel's log."};
    case Error::flush:
      return {"The disk could not say that what was written is safe on it",
              "Look for its errors in the kernel's log, and do not trust this disk."};
    case Error::noSpaceLeft:
      return {"There is no space left on the disk that holds the image or the file",
              "Make room there and try again."};
    case Error::journalFailed:
      return {"The journal could not be written, and what it was to keep was not overwritten",
              "Make room where it lies, or choose another file for it."};
    case Error::cannotOpenForReading:
      return {"The file could not be opened for reading", "Check its name and its rights."};
    case Error::cannotCreate:
      return {"The file could not be created", "Check the folder and its rights."};
    case Error::noSuchFile:
      return {"There is no such file", "Check the name."};
    case Error::deviceNotOpened:
      return {"The disk could not be opened", "Check its path and that you may read and write it."};
    case Error::deviceChanged:
      return {"The disk was replaced by another one or changed its size meanwhile",
              "List the disks and choose it again."};
    case Error::diskSizeUnknown:
      return {"The size of the disk could not be found out", "Check that a medium is in it."};
    case Error::geometryNotAvailable:
      return {"The disk has no usable size", "Check that a medium is in it."};
    case Error::unknownDriveClass:
      return {"There is no such kind of drive", "Choose a disk of the list."};
    case Error::tooManyOpenDrives:
      return {"Too many disks are open", "Close other programs and try again."};
    case Error::imageTableFull:
      return {"No more images can be opened", "Start again with fewer images."};
    case Error::lockNotMade:
      return {"Another program is changing this disk", "Try again when it has ended."};
    case Error::readOnlyDisk:
      return {"This disk can only be read",
              "Get the right to write to it, or remove its write protection."};
    case Error::seekFailed:
      return {"The file ends too early", "Check that it is whole."};
    case Error::bufferTooSmall:
      return {"A record on the disk is larger than it may be", "Use an older copy."};
    case Error::fileTooLarge:
      return {"The file is too large", "Choose a smaller one."};
    case Error::notThisFormat:
      return {"The file is not of this format", "Check that it is the right one."};
    case Error::unsupportedForm:
      return {"This form is not supported", "Convert it first."};
    case Error::corrupt:
      return {"The data is damaged", "Use an older copy."};
    case Error::gptSignature:
      return {"There is no sound GPT", "Put a kept table back with 'table restore'."};
    case Error::gptRevision:
      return {"The GPT is of a revision that is not known", "Use the program that made it."};
    case Error::gptTableCheck:
      return {"Only one copy of the GPT is sound", "Please repair it first ('table repair')."};
    case Error::backupOverlaps:
      return {"A partition lies where the backup of the table belongs",
              "Make that partition smaller first."};
    case Error::backupWriteFailed:
      return {"The backup of the table could not be written",
              "Look for disk errors in the kernel's log."};
    case Error::sectorSizeDiffers:
      return {"The table was made for another sector size", "Choose another disk."};
    case Error::tableNotUpdated:
      return {"The partition table was not updated", "Look for disk errors in the kernel's log."};
    case Error::tableNotBuilt:
      return {"The disk is too small for the new table", "Use a larger disk."};
    case Error::noRoomForReserved:
      return {"There is no free block of 16 MiB for the reserved partition of a GPT",
              "Make one by removing or shrinking a partition."};
    case Error::tableReadFailed:
      return {"The partition table could not be read", "Look for disk errors in the kernel's log."};
    case Error::tableWriteFailed:
      return {"The partition table could not be written",
              "Look for disk errors in the kernel's log."};
    case Error::noTable:
      return {"The disk has no partition table", "Create a partition first."};
    case Error::noFreeEntry:
      return {"All entries of the partition table are in use",
              "Delete a partition or use an extended one."};
    case Error::tooManyPartitions:
      return {"There are more partitions than the table can hold", "Delete one first."};
    case Error::entriesDoNotFit:
      return {"The entries do not fit into the table", "Use fewer partitions."};
    case Error::partitionBeyondTable:
      return {"A partition lies where the table cannot reach", "Use a GPT on this disk."};
    case Error::slotNotFree:
      return {"No slot of the MBR is free for the partition", "Free one of the four slots."};
    case Error::outsideUsableArea:
      return {"The partition would leave the free space or the limits of the table",
              "Choose a smaller size."};
    case Error::dynamicDisk:
      return {"A partition belongs to a dynamic disk", "Change it with the program that made it."};
    case Error::tableUnreadable:
      return {"No copy of this disk's partition table can be read",
              "Put a kept table back with 'table restore'."};
    case Error::tableInError:
      return {"The partition table has errors at this place",
              "Delete what is marked with E in the list first."};
    case Error::tableChangedMeanwhile:
      return {"Another program has changed the partition table",
              "Look at the new table and try again."};
    case Error::targetInUse:
      return {"The partition has come into use meanwhile", "Release it there and try again."};
    case Error::unfinishedWork:
      return {"An operation on this disk was cut short and has to be ended before anything else",
              "Continue or undo it first."};
    case Error::invalidWipePattern:
      return {"Invalid wipe pattern", "Write passes as \"r n s v 0x55&0xAA 0xFF>\"."};
    case Error::wipeMismatch:
      return {"What was read back is not what was written",
              "The disk does not keep its data; do not trust it."};
    case Error::noUnfinishedWork:
      return {"There is nothing on this disk to continue or to undo", "Look at its list."};
    case Error::volumeChangedMeanwhile:
      return {"The file system has changed since it was looked at, and nothing was written",
              "End what works on it, and check it again."};
    case Error::writeFailedNewTable:
      return {"The disk reported an error", "Copy your data and replace the disk."};
    case Error::writeFailedTableUnknown:
      return {"The disk reported an error",
              "List it, and put the kept table back with 'table restore' if it is not right."};
    case Error::backupOfOtherDisk:
      return {"The kept partition table belongs to another disk",
              "Choose the file that belongs to this one."};
    case Error::sectorsInUse:
      return {"Sectors that would be overwritten hold something of another program",
              "Look at what it is."};
    case Error::fileSystemUnreadable:
      return {"The file system could not be read", "Check it with the program that made it."};
    case Error::unsupportedFileSystem:
      return {"The file system is not supported", "Choose another one."};
    case Error::invalidSizeForType:
      return {"The size does not fit the file system", "Choose another size or another type."};
    case Error::invalidVolume:
      return {"The file system is damaged", "Check it before trying again."};
    case Error::sizeNotPossible:
      return {"This size is not possible", "Choose another one."};
    case Error::notAFileSystem:
      return {"There is no known file system", "Format the partition first."};
    case Error::scanStopped:
      return {"The surface scan was stopped before its end", "Repeat it if you need it."};
    case Error::clearingFailed:
      return {"Sectors could not be cleared", "Look for disk errors in the kernel's log."};
    case Error::invalidName:
      return {"The name is not valid on this file system", "Choose another name."};
    case Error::nameTooLong:
      return {"The name or the path is too long", "Choose a shorter one."};
    case Error::alreadyExists:
      return {"There is already a file or directory of that name", "Choose another name."};
    case Error::directoryNotEmpty:
      return {"The directory is not empty", "Remove what is in it first."};
    case Error::directoryFull:
      return {"The directory can hold no more entries",
              "Remove files from it, or use another directory."};
    case Error::volumeFull:
      return {"The file system is full", "Remove files from it and try again."};
    case Error::tooManyOpenFiles:
      return {"Too many files are open", "Close some of them first."};
    case Error::tooManyMounts:
      return {"The files of too many partitions are open", "Close some of them first."};
    case Error::accessDenied:
      return {"This is not possible with this file or on this file system",
              "Check that it is no directory, is not open, and may be written."};
    case Error::specialFile:
      return {"It is a symbolic link, a device or another special file, which cannot be copied",
              "Leave such files out with --skip-special, or copy what they lead to."};
    case Error::nameNotUtf8:
      return {"Its name is not UTF-8", "Rename it first."};
    case Error::sameName:
      return {"Another one beside it has the same name where capitals and small letters are one",
              "Rename one of them first."};
  }
  return {"Something unknown went wrong", "Try again."};
}

// The table that a failed change left: what the engines promise for these errors, after having
// looked at the disk where they had begun to write.
const char* tableLeftBy(Error error) {
  switch (error) {
    case Error::none:
    case Error::cancelled:
      return "";
    case Error::write:
    case Error::flush:
    case Error::noSpaceLeft:
    case Error::tableWriteFailed:
    case Error::backupWriteFailed:
    case Error::tableNotUpdated:
      return "The old table is still in place.";
    case Error::writeFailedNewTable:
      return "The new partition table is in place.";
    case Error::writeFailedTableUnknown:
      return "It could not be found out whether the old or the new partition table is in place.";
    default:
      return "Nothing was changed.";
  }
}

std::string withReason(const char* what, const Failure& failure) {
  const std::string reason = tableErrorText(failure);
  return reason.empty() ? reason : what + ("\n\n" + reason);
}

}  // namespace

std::string errorText(const Failure& failure) {
  // Whatever could not be done for it; but a file that could not be made is not in the image.
  const bool isImageFull =
      failure.isOutOfSpace() && failure != Error::cannotCreate && failure != Error::journalFailed;
  const Words words = wordsOf(isImageFull ? Error::noSpaceLeft : failure.code);
  std::string text = words.what;
  if (text.empty()) return text;
  if (failure.lba != kNoSector)
    text += format(" at sector %llu", static_cast<unsigned long long>(failure.lba));
  if (failure.systemError != 0) text += format(" (%s)", std::strerror(failure.systemError));
  return text + ". " + words.next;
}

std::string tableErrorText(const Failure& failure) {
  const std::string text = errorText(failure);
  return text.empty() ? text : text + "\n" + tableLeftBy(failure.code);
}

std::string createErrorText(const Failure& failure) {
  return withReason("Create Failed.", failure);
}

std::string deleteErrorText(const Failure& failure) {
  return withReason("Delete failed!", failure);
}

std::string mbrErrorText(const Failure& failure) {
  const std::string what = format("The %s operation on mass storage device failed!", "Write");
  return withReason(what.c_str(), failure);
}

std::string formatErrorText(const Failure& failure) {
  if (failure.isOutOfSpace()) return errorText(failure);
  switch (failure.code) {
    case Error::scanStopped:
      return {};
    case Error::clearingFailed:
    case Error::write:
      return "Due to surface defects, the format procedure\ndid not complete successfully.\n\n" +
             errorText(failure);
    case Error::invalidSizeForType:
      return "Format aborted because the partition size is\n"
             "invalid based on the file system id number.";
    case Error::outOfMemory:
      return "Insufficent memory to complete operation";
    default:
      return errorText(failure);
  }
}

}  // namespace tallowin
