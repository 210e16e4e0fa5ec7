#include "ops/error_text.h"

#include "base/text.h"

namespace tallowin {
namespace {

std::string withReason(const char* what, Failure error) {
  const std::string reason = tableErrorText(error);
  return reason.empty() ? reason : what + ("\n\n" + reason);
}

}  // namespace

std::string tableErrorText(Failure error) {
  switch (error.code) {
    case Error::none:
    case Error::cancelled:
      return {};
    case Error::read:
      return "The partition table could not be read.\nNothing was changed.";
    case Error::write:
      return "The partition table could not be written.\nThe old table is still in place.";
    case Error::noFreeEntry:
      return "All entries of the partition table are in use.\nNothing was changed.";
    case Error::outsideUsableArea:
      return "The partition would leave the free space or the limits of the table.\n"
             "Nothing was changed.";
    case Error::tableUnreadable:
      return "No copy of this disk's partition table can be read.\nNothing was changed.";
    case Error::sectorsInUse:
      return "The sectors behind the boot sector hold something of another program.\n"
             "Nothing was changed.";
    case Error::backupOverlaps:
      return "A partition lies where the backup of the table belongs.\nNothing was changed.";
    case Error::gptTableCheck:
      return "Only one copy of the GPT is sound. Please repair it first.\nNothing was changed.";
    case Error::tableInError:
      return "The partition table has errors at this place.\nNothing was changed.";
    case Error::tableChangedMeanwhile:
      return "Another program has changed the partition table.\n"
             "Nothing was changed. Look at the new table and try again.";
    case Error::writeFailedNewTable:
      return "The disk reported an error, but the new partition table is in place.";
    case Error::writeFailedTableUnknown:
      return "The disk reported an error, and it could not be found out whether the old\n"
             "or the new partition table is in place. A copy of the old one was kept.";
    case Error::outOfMemory:
      return "Insufficent memory to complete operation";
    default:
      return format("The partition table could not be changed (error %u).", codeOf(error));
  }
}

std::string createErrorText(Failure error) { return withReason("Create Failed.", error); }

std::string deleteErrorText(Failure error) { return withReason("Delete failed!", error); }

std::string mbrErrorText(Failure error) {
  const std::string what = format("The %s operation on mass storage device failed!", "Write");
  return withReason(what.c_str(), error);
}

std::string formatErrorText(Failure error) {
  switch (error.code) {
    case Error::none:
    case Error::cancelled:
    case Error::scanStopped:
      return {};
    case Error::clearingFailed:
    case Error::write:
      return "Due to surface defects, the format procedure\ndid not complete successfully.";
    case Error::fileTooLarge:  // the NTFS engine's number for a partition that is too small
    case Error::invalidSizeForType:
      return "Format aborted because the partition size is\n"
             "invalid based on the file system id number.";
    default:
      return "Insufficent memory to complete operation";
  }
}

}  // namespace tallowin
