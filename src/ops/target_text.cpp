#include "ops/target_text.h"

#include "base/text.h"
#include "probe/type_catalogue.h"
#include "ptable/gpt/gpt_types.h"

namespace tallowin {

std::string describeDisk(DiskDevice& disk) {
  std::string text = disk.model();
  const auto add = [&text](const std::string& part) {
    if (part.empty()) return;
    if (!text.empty()) text += ", ";
    text += part;
  };
  if (const std::string serial = disk.serial(); !serial.empty()) add("serial " + serial);
  if (const auto sectors = disk.sectorCount(); sectors && *sectors > 0)
    add(sizeText(0, *sectors - 1, disk.sectorSize()));
  add(disk.displayName());
  return text;
}

std::string emptyTableText(const Drive& drive) {
  const bool isSound = drive.table().status == 0 && drive.changesAllowed() == Error::none;
  if (!drive.table().entries.empty() || !isSound) return {};
  const u64 unit = alignmentUnit(drive.alignment());
  const u64 oneMiB = kMiB / drive.sectorSize();
  const bool isCoarse = oneMiB < unit;
  const bool takes1MiB = 2 * oneMiB <= drive.lastLba();
  return format(
      "There is no partition, and all free space is smaller than the alignment of this drive "
      "(%llu sectors%s). A finer one, as %s in the settings, leaves room.",
      static_cast<unsigned long long>(unit),
      isCoarse && !takes1MiB ? "; it is too small for 1 MiB, too" : "",
      isCoarse && takes1MiB ? "Align on 1MiB Boundaries" : "GlobalGeoAlignVal=4096 (bytes)");
}

const char* kindWord(const PartitionEntry& entry) {
  return entry.isVolume() ? "Volume" : "Partition";
}

std::string typeText(const PartitionEntry& entry) {
  const char* const byGuid = entry.type == types::kGptEntry ? gptTypeName(entry.typeGuid) : nullptr;
  return byGuid ? byGuid : types::name(entry.type);
}

std::optional<std::string> faultText(const PartitionEntry& entry) {
  if (entry.status & kEntryImpossible) return "ends before it starts, or starts before its EBR";
  if (entry.status & kEntryOverlaps) return "overlaps its neighbour or leaves its container";
  if (entry.status & kEntryForeign)
    return "another program made it, and the EMBR does not know it; 'table synchronize' takes it "
           "over";
  if (entry.type == types::kUntyped) return "has sectors but no type";
  if (entry.status & kEntryUnclear) return "its boot record holds more than a volume and a link";
  if (entry.isInError()) return "cannot be right";
  const auto* table = dynamic_cast<const TableEntry*>(&entry);
  if (!table || !table->volumes) return std::nullopt;
  if (table->volumes->status & kChainLoops) return "its chain of volumes loops or points backwards";
  if (table->volumes->status & kChainReadError) return "its chain of volumes cannot be read";
  if (table->volumes->status & kChainOutOfMemory) return "its chain of volumes is too long";
  if (table->volumes->status & kChainUnclear) return "its chain of volumes is not understood";
  return std::nullopt;
}

std::string describeTarget(Drive& drive, const PartitionEntry& entry) {
  std::string which = kindWord(entry);
  if (const auto number = drive.listNumber(entry))
    which = *number == 0 ? "Whole disk" : which + format(" %u", *number);
  return format("Disk: %s\n%s '%s', %s", describeDisk(drive.disk()).c_str(), which.c_str(),
                entry.name.c_str(),
                sizeText(entry.startSector, entry.endSector, drive.sectorSize()).c_str());
}

std::string summaryLine(const std::string& what, const std::string& value) {
  return what + ": " + value;
}

EntrySummary summaryOf(const Drive& drive, const PartitionEntry& entry) {
  return {summaryLine("Name", entry.name), summaryLine("Type", typeText(entry)),
          summaryLine("Size", sizeText(entry.startSector, entry.endSector, drive.sectorSize()))};
}

}  // namespace tallowin
