#include "ops/add_entry.h"

#include "base/text.h"
#include "ops/target_text.h"
#include "probe/disk_content.h"
#include "ptable/track_content.h"

namespace tallowin {
namespace {

std::string whatIsWrittenOver(Drive& drive, const NewEntry& entry) {
  const std::string disk = describeDisk(drive.disk());
  const TableEntry* container = entry.ebrSector ? drive.containerAt(*entry.ebrSector) : nullptr;
  if (container != nullptr)
    return format(
        "The extended partition '%s' of this disk (%s)\n"
        "has no volumes, but it holds %s.\n"
        "A new volume would overwrite a part of it.",
        container->name.c_str(), disk.c_str(),
        namedContainerContent(drive.disk(), *container)
            .value_or("something of another program")
            .c_str());
  const auto loader = container == nullptr
                          ? namedLoaderContent(drive.disk(), entry.startSector, entry.endSector)
                          : std::nullopt;
  if (loader && !drive.isEmbr() && drive.partitionCount() != 0)
    return format("A new partition of this disk (%s)\nwould overwrite %s.", disk.c_str(),
                  loader->c_str());
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

bool insistsOnOverwriting(const OperationContext& context, Drive& drive, const NewEntry& entry,
                          const char* title) {
  return context.ui.confirm(
      Consent::insist, drive.isEmbr() ? "EMBR" : title,
      whatIsWrittenOver(drive, entry) + "\n\nAre you sure you want to continue?");
}

// What the table has to be written over, only the user can give up.
Failure addEntry(const OperationContext& context, TableChange& change, Drive& drive,
                 const NewEntry& entry, const char* title) {
  const Failure failed = drive.add(entry);
  if (failed != Error::sectorsInUse) return failed;
  if (!insistsOnOverwriting(context, drive, entry, title) || change.lookAgain()) return failed;
  return drive.add(entry, TrackContent::overwrite);
}

}  // namespace tallowin
