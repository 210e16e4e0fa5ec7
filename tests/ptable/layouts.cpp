#include "ptable/layouts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <ostream>
#include <random>

#include "base/crc32.h"
#include "base/text.h"
#include "disk/disk_wrapper.h"
#include "disk/mbr_record.h"
#include "ptable/convert.h"
#include "ptable/embr/embr_image.h"
#include "ptable/gpt/gpt_record.h"
#include "ptable/table_bench.h"

namespace tallowin {
namespace {

constexpr u8 kProtective = 0xEE;
constexpr std::array<u8, 5> kContainers = {0x05, 0x0F, 0x85, 0x15, 0x1F};
constexpr std::array<u8, 26> kTypes = {0x01, 0x04, 0x06, 0x07, 0x0B, 0x0C, 0x0E, 0x11, 0x12,
                                       0x16, 0x17, 0x1B, 0x1C, 0x27, 0x39, 0x82, 0x83, 0x8E,
                                       0xA8, 0xAF, 0xBC, 0xDA, 0xDE, 0xEB, 0xEF, 0xFD};

class LayoutMaker {
 public:
  explicit LayoutMaker(unsigned seed)
      : random_(seed),
        layout_{"", MemoryDisk(40'000 + pick(300'000), chance(12) ? 4096 : 512), {}} {
    const u64 kind = pick(100);
    if (kind < 35) {
      say("MBR");
      makeMbr();
    } else if (kind < 47) {
      say("MBR with a broken chain");
      isBroken_ = true;
      makeMbr();
    } else if (kind < 70) {
      say("GPT");
      makeGpt(Hybrid::no);
    } else if (kind < 78) {
      say("hybrid");
      makeGpt(Hybrid::yes);
    } else if (kind < 84) {
      say("MBR over an old GPT");
      makeMbr();
      leaveOldGpt();
    } else if (kind < 90) {
      say("EMBR with stale slots");
      makeEmbr();
    } else {
      say("cut conversion");
      cutConversion();
    }
    say(", seed " + std::to_string(seed));
  }

  Layout take() { return std::move(layout_); }

 private:
  enum class Hybrid { no, yes };

  u64 pick(u64 below) { return below == 0 ? 0 : random_() % below; }
  bool chance(u64 percent) { return pick(100) < percent; }
  template <typename List>
  auto oneOf(const List& list) {
    return list[pick(list.size())];
  }
  void say(const std::string& text) { layout_.what += text; }
  MemoryDisk& disk() { return layout_.disk; }
  u64 sectors() { return *disk().sectorCount(); }
  u32 sectorSize() { return disk().sectorSize(); }

  template <DiskRecord Record>
  void put(u64 lba, const Record& record, std::size_t offset = 0) {
    std::vector<u8> sector = disk().sector(lba);
    *recordAt<Record>(std::span(sector), offset) = record;
    disk().setSector(lba, sector);
  }

  // Runs of sectors that do not meet, in the order of the disk, with and without gaps.
  std::vector<SectorRun> runsIn(SectorRun room, std::size_t most) {
    std::vector<u64> bounds;
    for (std::size_t i = 0; i < 2 * most; ++i) {
      u64 at = room.start + pick(room.end - room.start);
      if (chance(50)) at = at / 2048 * 2048;
      if (at >= room.start) bounds.push_back(at);
    }
    if (chance(30)) bounds.push_back(room.end);
    if (chance(30)) bounds.push_back(room.start);
    std::ranges::sort(bounds);
    bounds.erase(std::unique(bounds.begin(), bounds.end()), bounds.end());
    std::vector<SectorRun> runs;
    for (std::size_t i = 1; i < bounds.size() && runs.size() < most; ++i) {
      runs.push_back({bounds[i - 1], bounds[i]});
      if (chance(60)) ++i;
    }
    return runs;
  }

  MbrSlotRecord slotFor(SectorRun run, u8 type) {
    MbrSlotRecord made = slot(type, run.start, run.end - run.start);
    const u64 kind = pick(3);
    if (kind != 0)
      made.startChs = made.endChs = kind == 1 ? std::array<u8, 3>{0xFE, 0xFF, 0xFF}
                                              : std::array<u8, 3>{static_cast<u8>(pick(255)), 1, 0};
    return made;
  }

  std::vector<std::size_t> mixed(std::size_t count) {
    std::vector<std::size_t> order(count);
    for (std::size_t i = 0; i < count; ++i) order[i] = i;
    std::ranges::shuffle(order, random_);
    return order;
  }

  void makeMbr() {
    MbrRecord mbr{};
    mbr.diskSignature = static_cast<u32>(random_());
    mbr.signature.set();
    std::vector<SectorRun> runs = runsIn({1 + pick(63), sectors()}, 1 + pick(4));
    const std::vector<std::size_t> order = mixed(4);
    const std::size_t container = pick(runs.size());
    const bool hasContainer = isBroken_ || chance(75);
    for (std::size_t i = 0; i < runs.size(); ++i) {
      const bool isContainer = hasContainer && (i == container || chance(4));
      const u8 type = isContainer ? oneOf(kContainers) : oneOf(kTypes);
      mbr.slots[order[i]] = slotFor(runs[i], type);
      if (isContainer) makeChain(runs[i]);
    }
    if (!runs.empty() && chance(40)) mbr.slots[order[0]].bootIndicator = kBootActive;
    put(0, mbr);
  }

  // One boot record of a chain, and what it names. Positions on the disk.
  struct Link {
    u64 ebr = 0;
    std::vector<SectorRun> volumes;
    u64 end = 0;
  };

  void makeChain(SectorRun container) {
    std::vector<Link> links = linksIn(container);
    if (isBroken_) breakLinks(container, links);
    const std::size_t loopFrom = isBroken_ && chance(35) ? pick(links.size()) : links.size();
    for (std::size_t i = 0; i < links.size(); ++i) {
      EbrRecord ebr{};
      ebr.signature.set();
      const std::vector<std::size_t> slots =
          chance(40) ? std::vector<std::size_t>{0, 1, 2, 3} : mixed(4);
      std::size_t used = 0;
      for (const SectorRun& volume : links[i].volumes)
        ebr.slots[slots[used == 0 ? 0 : used + 1]] =
            slotFor({volume.start - links[i].ebr, volume.end - links[i].ebr}, oneOf(kTypes)),
                                               ++used;
      const Link* next = i + 1 < links.size() ? &links[i + 1] : nullptr;
      if (i == loopFrom) next = &links[pick(i + 1)];
      if (next != nullptr)
        ebr.slots[slots[1]] =
            slotFor({next->ebr - container.start, next->end - container.start}, linkType());
      put(links[i].ebr, ebr);
      chain_.push_back({links[i].ebr, links[i].ebr + 1});
    }
  }

  u8 linkType() { return chance(60) ? 0x05 : oneOf(std::array<u8, 2>{0x0F, 0x85}); }

  // A chain that starts at the container's start; the others follow in any order.
  std::vector<Link> linksIn(SectorRun container) {
    std::vector<SectorRun> rooms = runsIn({container.start + 1, container.end}, pick(7));
    std::ranges::shuffle(rooms, random_);
    std::vector<Link> links = {{container.start, {}, container.start + 1}};
    bool firstIsUsed = false;
    for (const SectorRun& room : rooms) {
      const u64 length = room.end - room.start;
      if (!firstIsUsed && chance(50)) {
        // The record at the container's start has a volume that may lie anywhere behind it.
        firstIsUsed = true;
        links.front().volumes.push_back(room);
        links.front().end = room.end;
        continue;
      }
      if (length < 4) continue;
      const u64 gap = 1 + pick(std::min<u64>(length - 2, chance(50) ? 1 : 2048));
      Link link{room.start, {}, room.end};
      const SectorRun volume{room.start + gap, room.end};
      if (chance(12) && volume.end - volume.start > 2) {
        const u64 middle = volume.start + 1 + pick(volume.end - volume.start - 1);
        link.volumes = {{volume.start, middle}, {middle, volume.end}};
      } else if (!chance(10)) {
        link.volumes = {volume};
      }
      links.push_back(link);
    }
    return links;
  }

  void breakLinks(SectorRun container, std::vector<Link>& links) {
    Link& link = links[pick(links.size())];
    switch (pick(4)) {
      case 0:  // a link that leaves the container, or the disk
        links.push_back({container.end + pick(chance(50) ? 5000 : 500'000), {}, container.end + 1});
        if (links.back().ebr >= sectors()) links.back().ebr = sectors() - 1;
        links.back().end = links.back().ebr + 1;
        return;
      case 1:  // a volume that leaves the container
        link.volumes = {{link.ebr + 1, container.end + 1 + pick(3000)}};
        return;
      case 2:  // two volumes that overlap
        if (!link.volumes.empty())
          links.push_back(
              {link.volumes[0].start, {{link.volumes[0].start + 1, container.end}}, container.end});
        return;
      default:
        return;
    }
  }

  struct GptForm {
    u64 entryLba = kGptPrimaryEntryLba;
    u32 entryCount = kGptEntryCount;
    u32 entrySize = kGptEntrySize;
    u64 arraySectors = 0;
    u64 firstUsable = 0;
    u64 lastUsable = 0;
    u64 backupLba = 0;
    Guid diskGuid;
  };

  Guid someGuid() {
    Guid guid;
    for (u8& byte : guid.bytes) byte = static_cast<u8>(1 + pick(255));
    return guid;
  }

  static Guid linuxData() {
    Guid guid;
    EXPECT_TRUE(parseGuid("0FC63DAF-8483-4772-8E79-3D69D8477DE4", guid));
    return guid;
  }

  GptForm gptForm() {
    GptForm form;
    form.diskGuid = someGuid();
    if (chance(35))
      form.entryCount = oneOf(std::array<u32, 8>{4, 16, 56, 128, 200, 256, 512, 1024});
    if (chance(15)) form.entrySize = 256;
    form.arraySectors = (u64{form.entryCount} * form.entrySize + sectorSize() - 1) / sectorSize();
    if (chance(30)) form.entryLba += chance(50) ? pick(100) : 62 + pick(1900);
    form.firstUsable = form.entryLba + form.arraySectors + (chance(40) ? pick(2048) : 0);
    form.backupLba = sectors() - 1 - (chance(12) ? 1 + pick(3000) : 0);
    form.lastUsable = form.backupLba - form.arraySectors - 1 - (chance(30) ? pick(500) : 0);
    return form;
  }

  void putGptCopy(const GptForm& form, std::span<const u8> entries, bool isBackup) {
    const u64 array = isBackup ? form.backupLba - form.arraySectors : form.entryLba;
    EXPECT_EQ(disk().writeSectors(array, entries.data(), form.arraySectors), Error::none);
    GptHeaderRecord header{};
    std::copy_n(kGptSignature, sizeof header.signature, header.signature);
    header.revision = kGptRevision;
    header.headerSize = kGptHeaderSize;
    header.myLba = isBackup ? form.backupLba : 1;
    header.alternateLba = isBackup ? 1 : form.backupLba;
    header.firstUsableLba = form.firstUsable;
    header.lastUsableLba = form.lastUsable;
    header.diskGuid = form.diskGuid;
    header.entryLba = array;
    header.entryCount = form.entryCount;
    header.entrySize = form.entrySize;
    header.entryCrc = crc32(entries.first(std::size_t{form.entryCount} * form.entrySize));
    header.headerCrc = crc32(bytesOf(header));
    put(header.myLba, header);
  }

  void makeGpt(Hybrid hybrid) {
    const GptForm form = gptForm();
    std::vector<u8> entries(form.arraySectors * sectorSize());
    const std::vector<SectorRun> runs = runsIn({form.firstUsable, form.lastUsable + 1}, pick(9));
    const std::vector<std::size_t> places = mixed(form.entryCount);
    for (std::size_t i = 0; i < std::min<std::size_t>(runs.size(), form.entryCount); ++i) {
      const std::size_t place = chance(50) ? places[i] : places[i] % 4;
      auto& entry = *recordAt<GptEntryRecord>(std::span(entries), place * form.entrySize);
      if (entry.isUsed()) continue;
      entry.typeGuid = chance(70) ? linuxData() : someGuid();
      entry.uniqueGuid = someGuid();
      entry.firstLba = runs[i].start;
      entry.lastLba = runs[i].end - 1;
      entry.attributes = chance(20) ? random_() % 8 : 0;
      entry.name[0] = static_cast<u16>('a' + i);
    }
    putGptCopy(form, entries, false);
    putGptCopy(form, entries, true);
    // A board keeps its loader before an array that was moved.
    if (const u64 loader = form.entryLba - kGptPrimaryEntryLba; loader != 0) {
      const std::vector<u8> bytes(loader * sectorSize(), 0xB0);
      EXPECT_EQ(disk().writeSectors(kGptPrimaryEntryLba, bytes.data(), loader), Error::none);
      layout_.kept.push_back({kGptPrimaryEntryLba, form.entryLba});
    }
    damageOneCopy(form);
    protect(runs, hybrid);
    layout_.hasGpt = true;
  }

  void damageOneCopy(const GptForm& form) {
    if (!chance(25)) return;
    const bool isBackup = chance(50);
    const u64 header = isBackup ? form.backupLba : 1;
    const u64 array = isBackup ? form.backupLba - form.arraySectors : form.entryLba;
    const u64 lba = chance(60) ? header : array;
    std::vector<u8> sector = disk().sector(lba);
    sector[chance(50) ? 0 : 40] ^= 0xFF;
    if (chance(20)) std::ranges::fill(sector, u8{0});
    disk().setSector(lba, sector);
  }

  void protect(std::span<const SectorRun> runs, Hybrid hybrid) {
    MbrRecord mbr{};
    mbr.signature.set();
    mbr.diskSignature = static_cast<u32>(random_());
    const std::vector<std::size_t> order = mixed(4);
    const bool isPlain = hybrid == Hybrid::no && chance(70);
    const u64 limit = chance(20) ? u64{kAllOnes32} + 1 : sectors();
    const u64 end = hybrid == Hybrid::yes && !runs.empty() ? runs.front().start : limit;
    mbr.slots[isPlain ? 0 : order[0]] = slotFor({1, end}, kProtective);
    if (hybrid == Hybrid::yes)
      for (std::size_t i = 0; i < std::min<std::size_t>(3, runs.size()); ++i)
        if (chance(80)) mbr.slots[order[i + 1]] = slotFor(runs[i], oneOf(kTypes));
    put(0, mbr);
  }

  // Copies of a GPT that a tool left when it made an MBR: both, or the one at the end.
  void leaveOldGpt() {
    const std::vector<u8> mbr = disk().sector(0);
    const GptForm form = gptForm();
    std::vector<u8> entries(form.arraySectors * sectorSize());
    auto& entry = *recordAt<GptEntryRecord>(std::span(entries));
    entry.typeGuid = linuxData();
    entry.uniqueGuid = someGuid();
    entry.firstLba = form.firstUsable;
    entry.lastLba = form.firstUsable + pick(form.lastUsable - form.firstUsable);
    // Not over a chain.
    std::vector<SectorRun> places = {{form.backupLba - form.arraySectors, form.backupLba + 1}};
    if (chance(40)) places.push_back({1, form.entryLba + form.arraySectors});
    for (const SectorRun& place : places) {
      const bool isKept =
          std::ranges::any_of(chain_, [&](const SectorRun& kept) { return kept.meets(place); });
      if (!isKept) putGptCopy(form, entries, &place == &places.front());
    }
    disk().setSector(0, mbr);
  }

  // An EMBR of this disk's MBR, and then other slots than its own.
  bool becomeEmbr() {
    FakeHost host;
    const auto shared = std::make_shared<DiskWrapper>(disk());
    const auto drive = TableBench::openOn(shared, host);
    return convertToEmbr(*drive, chance(50)) == Error::none;
  }

  void makeEmbr() {
    makeMbr();
    if (!becomeEmbr()) return say(" (refused)");
    std::vector<u8> sector = disk().sector(0);
    MbrRecord& mbr = *recordAt<MbrRecord>(std::span(sector));
    for (MbrSlotRecord& slot : mbr.slots) {
      if (slot.type != 0 && kContainers.end() != std::ranges::find(kContainers, slot.type))
        continue;
      const u64 kind = pick(10);
      if (kind == 0) slot.clear();
      if (kind == 1 && slot.sectorCount > 2) slot.sectorCount = slot.sectorCount / 2;
      if (kind == 2 && slot.type != 0) slot.type = oneOf(kTypes);
      if (kind >= 3 && kind < 8 && slot.type == 0)
        slot = slotFor({sectors() - 1000, sectors() - 500}, oneOf(kTypes));
    }
    disk().setSector(0, sector);
  }

  // Sectors from before and after a change of the scheme, in any mixture.
  void cutConversion() {
    const bool toGpt = chance(50);
    makeMbr();
    if (chance(50) && !becomeEmbr()) say(" (refused)");
    MemoryDisk before = disk().copy();
    FakeHost host;
    const auto drive = TableBench::openOn(std::make_shared<DiskWrapper>(disk()), host);
    const Failure failed = toGpt             ? convertToGpt(*drive, false)
                           : drive->isEmbr() ? convertToMbr(*drive, false)
                                             : convertToEmbr(*drive, chance(50));
    if (failed) return say(" (refused)");
    for (u64 lba = 0; lba < sectors(); ++lba) {
      if (lba == 70) lba = sectors() - 70;
      const std::vector<u8> old = before.sector(lba);
      if (old != disk().sector(lba) && chance(50)) disk().setSector(lba, old);
    }
    layout_.hasGpt = toGpt;
  }

  std::mt19937_64 random_;
  Layout layout_;
  bool isBroken_ = false;
  std::vector<SectorRun> chain_;  // its boot records
};

}  // namespace

std::ostream& operator<<(std::ostream& out, const SectorRun& run) {
  return out << run.start << ".." << run.end - 1;
}

Layout makeLayout(unsigned seed) { return LayoutMaker(seed).take(); }

}  // namespace tallowin
