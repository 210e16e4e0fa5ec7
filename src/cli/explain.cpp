#include "cli/explain.h"

#include "base/text.h"

namespace tallowin {
namespace {

struct Explanation {
  Failure code;
  const char* text;
};
constexpr Explanation kExplanations[] = {
    {Error::outOfMemory, "There is not enough memory; end other programs and try again."},
    {Error::read, "The disk could not be read; look for its errors in the kernel's log."},
    {Error::write,
     "The disk could not be written; look for its errors in the kernel's log, and at an image for "
     "room where it lies."},
    {Error::fileSystemUnreadable,
     "The file system could not be read; check it with the program that made it."},
    {Error::cannotOpenForReading, "The file could not be opened for reading; check its rights."},
    {Error::noSuchFile, "There is no such file, or no sound table in it; check the name."},
    {Error::tableNotUpdated,
     "The partition table was not changed; look for disk errors in the kernel's log."},
    {Error::unsupportedFileSystem, "The file system is not supported; choose another one."},
    {Error::outsideUsableArea,
     "It would leave the area that partitions may take; choose a smaller size."},
    {Error::invalidSizeForType,
     "The size does not fit the file system; choose another size or another type."},
    {Error::invalidVolume, "The file system is damaged; check it before trying again."},
    {Error::sizeNotPossible, "This size is not possible; choose another one."},
    {Error::deviceNotOpened,
     "The disk could not be opened; check its path and that you may read and write it."},
    {Error::geometryNotAvailable,
     "The disk could not be read or written, or has no usable size; look for its errors in the "
     "kernel's log."},
    {Error::noSpaceLeft, "There is no space left for the file; make room or choose another place."},
    {Error::bufferTooSmall, "A record on the disk is larger than it may be; the disk is damaged."},
    {Error::fileTooLarge,
     "The partition does not fit the file system, or the file is too large; choose another size."},
    {Error::notThisFormat, "The file is not of this format; check that it is the right one."},
    {Error::noFreeEntry,
     "The partition table has no free entry; delete a partition or use an extended one."},
    {Error::lockNotMade, "Another program works on this disk; wait until it is done."},
    {Error::backupWriteFailed,
     "The backup table could not be written; look for disk errors in the kernel's log."},
    {Error::sectorSizeDiffers, "The table was made for another sector size; choose another disk."},
    {Error::unsupportedForm, "This form of the format is not supported; convert it first."},
    {Error::cannotCreate, "The file could not be created; check the folder and its rights."},
    {Error::seekFailed, "The file ends too early; check that it is whole."},
    {Error::scanStopped, "The surface scan was stopped before its end; repeat it if you need it."},
    {Error::notAFileSystem, "There is no known file system; format the partition first."},
    {Error::corrupt, "The data is damaged; use an older copy."},
    {Error::tableReadFailed,
     "The table could not be read; look for disk errors in the kernel's log."},
    {Error::clearingFailed,
     "Sectors could not be cleared or written; look for disk errors in the kernel's log."},
    {Error::tableUnreadable,
     "Neither copy of the disk's GPT can be read; put a kept table back with 'table restore'."},
    {Error::tableInError,
     "The partition table has errors there; delete what is marked with E in the list first."},
    {Error::tableChangedMeanwhile,
     "Another program has changed the partition table meanwhile; list it and try again."},
    {Error::writeFailedNewTable,
     "A write failed, but the new table is on the disk; copy your data and replace the disk."},
    {Error::writeFailedTableUnknown,
     "A write failed, and which table is on the disk is not known; list it, and put the kept "
     "table back with 'table restore' if it is not right."},
    {Error::sectorsInUse,
     "Sectors that would be overwritten hold something of another program; look at what it is."},
    {Error::backupOfOtherDisk,
     "The kept table is of another disk; choose the file that belongs to this one."},
};

}  // namespace

std::string explain(Failure code) {
  if (code == Error::none || code == Error::cancelled) return {};
  for (const Explanation& row : kExplanations)
    if (row.code == code) return row.text;
  return format("The operation failed with error %u.", codeOf(code));
}

}  // namespace tallowin
