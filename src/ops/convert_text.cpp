#include "ops/convert_text.h"

#include <algorithm>

#include "base/text.h"
#include "ptable/embr/embr_record.h"

namespace tallowin {
namespace {

std::string reservedText(Drive& drive) {
  const auto place = reservedPlace(drive);
  if (!place) return {};
  const std::string size = sizeText(place->first, place->last, drive.sectorSize());
  return format("A reserved partition of %s is made at sector %llu. It goes on the way back.\n",
                size.c_str(), static_cast<unsigned long long>(place->first));
}

std::string fromGptText(Drive& drive, Scheme target, const EarlierMbr* earlier) {
  std::string text;
  if (const TableEntry* reserved = emptyReservedPartition(drive))
    text += format("The empty reserved partition %u goes.\n",
                   static_cast<unsigned>(reserved->tableIndex) + 1);
  const auto isCut = [](const auto& entry) {
    return !entry->isFree() && entry->tableName.size() > kMptNameCharacters;
  };
  if (target == Scheme::embr && std::ranges::any_of(drive.table().entries, isCut))
    text += format("Names are cut to %zu characters.\n", kMptNameCharacters);
  if (target == Scheme::embr)
    return text + "GUIDs and attributes of the partitions are not kept.\n";
  if (earlier != nullptr)
    return text + format(
                      "Boot code, disk signature, active mark and types come back from the table "
                      "of %s.\nNames, GUIDs and attributes are not kept.\n",
                      dateStamp(earlier->savedAt).c_str());
  return text +
         "Names, GUIDs and attributes of the partitions are not kept. No partition will be "
         "active,\n"
         "and the boot sector gets the standard boot code.\n";
}

}  // namespace

std::string convertConsequences(Drive& drive, Scheme target, const EarlierMbr* earlier) {
  if (drive.isGpt()) return fromGptText(drive, target, earlier);
  if (target != Scheme::gpt)
    return drive.isEmbr() ? "Names and flags of the partitions are not kept.\n" : "";
  const char* way = drive.isEmbr()
                        ? "Active mark and boot code are not kept.\n"
                        : "Boot code, disk signature, active mark and types are kept for the way "
                          "back to this MBR.\n";
  return reservedText(drive) + way;
}

std::string repairFirstText(Drive& drive) {
  if (!drive.gptHealth() || drive.gptHealth()->isSound()) return {};
  return gptHealthText(*drive.gptHealth()) +
         format("\nRepair it first:\ntallowinctl table repair %s",
                drive.disk().displayName().c_str());
}

}  // namespace tallowin
