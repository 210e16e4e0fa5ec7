#include "cli/listing.h"

#include <algorithm>

#include "base/text.h"
#include "base/utf8.h"
#include "cli/progress_line.h"
#include "ops/property_rules.h"
#include "ops/synchronize_flow.h"
#include "ops/target_text.h"
#include "probe/identify.h"
#include "probe/type_catalogue.h"
#include "ptable/gpt/gpt_types.h"

namespace tallowin {
namespace {

const char* kindName(ListedRow::Kind kind) {
  switch (kind) {
    case ListedRow::Kind::partition:
      return "partition";
    case ListedRow::Kind::volume:
      return "volume";
    case ListedRow::Kind::free:
      return "free";
  }
  return "";
}

std::optional<std::string> diskId(const Drive& drive) {
  if (drive.scheme() == Scheme::wholeDisk) return std::nullopt;
  if (drive.isGpt()) return guidText(drive.diskGuid());
  return format("0x%08x", drive.diskSignature());
}

std::optional<std::string> guidOrNothing(const Guid& guid) {
  return guid.isZero() ? std::nullopt : std::optional(guidText(guid));
}

std::optional<std::string> unlessEmpty(std::string text) {
  return text.empty() ? std::nullopt : std::optional(std::move(text));
}

std::string flagsOf(const Drive& drive, const PartitionEntry& entry) {
  std::string flags;
  if (entry.bootIndicator == 0x80) flags += "active ";
  if (isHiddenEntry(entry)) flags += "hidden ";
  if (drive.isUnfinished(entry)) flags += "UNFINISHED ";
  if (const auto fault = faultText(entry)) flags += "ERROR: " + *fault;
  return std::string(trimRight(flags));
}

// Columns are of characters, which printf counts in bytes.
std::string padded(std::string text, std::size_t width) {
  std::size_t characters = 0;
  for (std::size_t at = 0; at < text.size(); ++characters) nextCharacter(text, at);
  if (characters < width) text.append(width - characters, ' ');
  return text;
}

std::string rowLine(const FileSystemKinds& kinds, Drive& drive, const ListedRow& row) {
  const PartitionEntry& entry = *row.entry;
  const std::string number = row.number ? format("%u", *row.number) : "-";
  return format("%4s  %-10s %s %12llu %12llu %10s  %-20s %-8s %s", number.c_str(),
                kindName(row.kind), padded(entry.name, 24).c_str(),
                static_cast<unsigned long long>(entry.startSector),
                static_cast<unsigned long long>(entry.endSector),
                sizeText(entry.startSector, entry.endSector, drive.sectorSize()).c_str(),
                typeText(entry).c_str(), contentName(kinds, drive, entry).value_or("").c_str(),
                flagsOf(drive, entry).c_str());
}

}  // namespace

std::optional<std::string> gptHealthFor(const Drive& drive) {
  if (drive.gptHealth()) return gptHealthWord(*drive.gptHealth());
  return drive.changesAllowed() == Error::tableUnreadable ? std::optional("unreadable")
                                                          : std::nullopt;
}

std::string tableProblemText(Drive& drive) {
  if (!drive.changeRefusal().empty()) return onOneLine(drive.changeRefusal());
  if (isBehindMbr(drive))
    return "Another program has changed the boot sector. Run 'tallowinctl table synchronize'.";
  const auto& health = drive.gptHealth();
  return !health || health->isSound() ? std::string()
                                      : gptHealthText(*health) + " Run 'tallowinctl table repair'.";
}

std::vector<ListedRow> listedRows(Drive& drive) {
  std::vector<ListedRow> rows;
  u32 freeBlocks = 0;
  const auto add = [&](PartitionEntry& entry, ListedRow::Kind kind) {
    if (entry.isFree())
      rows.push_back({ListedRow::Kind::free, &entry, ++freeBlocks});
    else
      rows.push_back({kind, &entry, drive.listNumber(entry)});
  };
  for (const auto& entry : drive.table().entries) {
    add(*entry, ListedRow::Kind::partition);
    if (!entry->volumes) continue;
    for (const auto& volume : entry->volumes->entries) add(*volume, ListedRow::Kind::volume);
  }
  return rows;
}

PartitionEntry* findFreeBlock(Drive& drive, std::optional<u32> number) {
  PartitionEntry* found = nullptr;
  for (const ListedRow& row : listedRows(drive)) {
    if (row.kind != ListedRow::Kind::free) continue;
    if (number ? row.number == number : !found || row.entry->sectorCount() > found->sectorCount())
      found = row.entry;
  }
  return found;
}

std::optional<std::string> contentName(const FileSystemKinds& kinds, Drive& drive,
                                       const PartitionEntry& entry) {
  Content content;
  if (entry.isFree() || entry.isInError() || types::isExtended(entry.type) ||
      identify(drive.disk(), entry.startSector, content) != Error::none)
    return std::nullopt;
  if (const auto* kind = kinds.byContent(content.code, rangeOf(drive, entry), entry.type))
    return std::string(kind->word);
  switch (content.code) {
    case ContentCode::ntfs:
      return "ntfs";
    case ContentCode::linuxSwap:
      return "swap";
    case ContentCode::ext:
      return "ext";
    case ContentCode::hfsPlus:
      return "hfs+";
    case ContentCode::reiserFs:
      return "reiserfs";
    case ContentCode::exFat:
      return "exfat";
    case ContentCode::xfs:
      return "xfs";
    case ContentCode::reFs:
      return "refs";
    case ContentCode::bitLocker:
      return "bitlocker";
    case ContentCode::iso9660:
      return "iso9660";
    default:
      return std::nullopt;
  }
}

std::string listingText(const FileSystemKinds& kinds, Drive& drive) {
  DiskDevice& disk = drive.disk();
  const u64 sectors = drive.lastLba() + 1;
  const Geometry& geometry = drive.geometry();
  std::string text = format(
      "%s: %llu MiB, %llu sectors of %u bytes, geometry %u/%u/%u\n", disk.displayName().c_str(),
      static_cast<unsigned long long>(sectorsToMiB(sectors, drive.sectorSize())),
      static_cast<unsigned long long>(sectors), drive.sectorSize(), geometry.maxCylinder,
      geometry.maxHead, geometry.sectorsPerTrack);
  text += format("%s Partitions", drive.schemeName());
  if (const auto id = diskId(drive)) text += ", disk id " + *id;
  if (const std::string problem = tableProblemText(drive); !problem.empty()) text += "\n" + problem;
  text += "\n\n";
  text += format("%4s  %-10s %-24s %12s %12s %10s  %-20s %-8s %s\n", "No", "Kind", "Name", "Start",
                 "End", "Size", "Type", "Holds", "");
  for (const ListedRow& row : listedRows(drive))
    text += std::string(trimRight(rowLine(kinds, drive, row))) + "\n";
  if (drive.table().hasErrors()) text += "\n* Errors Exist *\n";
  if (const std::string why = emptyTableText(drive); !why.empty()) text += "\n" + why + "\n";
  return text;
}

std::string rowText(const Drive& drive, const ListedRow& row) {
  const PartitionEntry& entry = *row.entry;
  return format("%s: %s '%s', sectors %llu..%llu, %s",
                row.number ? format("%u", *row.number).c_str() : "-", typeText(entry).c_str(),
                entry.name.c_str(), static_cast<unsigned long long>(entry.startSector),
                static_cast<unsigned long long>(entry.endSector),
                sizeText(entry.startSector, entry.endSector, drive.sectorSize()).c_str());
}

void writeRow(JsonWriter& json, const FileSystemKinds& kinds, Drive& drive, const ListedRow& row) {
  const PartitionEntry& entry = *row.entry;
  const bool isFree = row.kind == ListedRow::Kind::free;
  json.numberOrNull("number", isFree ? std::nullopt : row.number);
  json.text("kind", kindName(row.kind));
  json.number("id", entry.id);
  json.number("start", entry.startSector);
  json.number("end", entry.endSector);
  json.number("sectors", entry.sectorCount());
  json.number("type", entry.type);
  json.text("type_name", typeText(entry));
  json.textOrNull("type_guid", guidOrNothing(entry.typeGuid));
  json.textOrNull("unique_guid", guidOrNothing(entry.uniqueGuid));
  json.number("attributes", entry.attributes);
  json.text("name", entry.tableName.empty() ? entry.name : entry.tableName);
  json.textOrNull("fs", contentName(kinds, drive, entry));
  json.boolean("active", entry.bootIndicator == 0x80);
  json.boolean("hidden", isHiddenEntry(entry));
  json.boolean("unfinished", drive.isUnfinished(entry));
  json.textOrNull("error", faultText(entry));
}

std::string chsText(const ChsAddress& address) {
  return format("%u/%u/%u", address.cylinder, address.head, address.sector);
}

void writeChs(JsonWriter& json, const char* key, const ChsAddress& address) {
  json.beginObject(key);
  json.number("cylinder", address.cylinder);
  json.number("head", address.head);
  json.number("sector", address.sector);
  json.endObject();
}

void writePartition(JsonWriter& json, const FileSystemKinds& kinds, Drive& drive,
                    const ListedRow& row) {
  json.beginObject("partition");
  writeRow(json, kinds, drive, row);
  json.endObject();
}

void writeRows(JsonWriter& json, const FileSystemKinds& kinds, Drive& drive) {
  json.beginArray("rows");
  for (const ListedRow& row : listedRows(drive)) {
    json.beginObject();
    writeRow(json, kinds, drive, row);
    json.endObject();
  }
  json.endArray();
}

void writeDrive(JsonWriter& json, Drive& drive, const std::string& path) {
  json.text("path", path);
  json.textOrNull("model", unlessEmpty(drive.disk().model()));
  json.text("scheme", drive.schemeName());
  json.number("sector_size", drive.sectorSize());
  json.number("sectors", drive.lastLba() + 1);
  json.beginObject("geometry");
  json.number("max_cylinder", drive.geometry().maxCylinder);
  json.number("max_head", drive.geometry().maxHead);
  json.number("sectors_per_track", drive.geometry().sectorsPerTrack);
  json.endObject();
  json.textOrNull("disk_id", diskId(drive));
  json.textOrNull("gpt_health", gptHealthFor(drive));
}

}  // namespace tallowin
