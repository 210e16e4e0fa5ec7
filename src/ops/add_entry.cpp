#include "ops/add_entry.h"

#include "base/text.h"
#include "ops/target_text.h"
#include "probe/disk_content.h"

namespace tallowin {
namespace {

std::string whatIsWrittenOver(Drive& drive) {
  const std::string disk = describeDisk(drive.disk());
  if (drive.isEmbr())
    return format(
        "The EMBR of this disk (%s) has to grow over a sector\n"
        "that holds something of another program, which may be a boot loader.",
        disk.c_str());
  return format(
      "This disk (%s) has no partitions, but it holds %s.\n"
      "A new partition would overwrite a part of it.",
      disk.c_str(),
      namedDiskContent(drive.disk()).value_or("something of another program").c_str());
}

}  // namespace

// What the table has to be written over, only the user can give up.
Failure addEntry(const OperationContext& context, TableChange& change, Drive& drive,
                 const NewEntry& entry, const char* title) {
  const Failure failed = drive.add(entry);
  if (failed != Error::sectorsInUse) return failed;
  const bool insists =
      context.ui.confirm(Consent::insist, drive.isEmbr() ? "EMBR" : title,
                         whatIsWrittenOver(drive) + "\n\nAre you sure you want to continue?");
  if (!insists || change.lookAgain()) return failed;
  return drive.add(entry, TrackContent::overwrite);
}

}  // namespace tallowin
