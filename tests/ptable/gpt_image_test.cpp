#include "ptable/gpt/gpt_image.h"

#include <gtest/gtest.h>

#include "base/crc32.h"
#include "support/fault_loops.h"

namespace tallowin {
namespace {

constexpr u64 kSectors = 100 * kMiB / 512;

Guid someGuid(u8 seed) {
  Guid guid;
  for (std::size_t i = 0; i < guid.bytes.size(); ++i) guid.bytes[i] = static_cast<u8>(seed + i);
  return guid;
}

void addEntry(GptImage& image, u32 index, u64 first, u64 last, const std::string& name) {
  GptEntryRecord& entry = image.entry(index);
  ASSERT_TRUE(parseGuid("{EBD0A0A2-B9E5-4433-87C0-68B6B72699C7}", entry.typeGuid));
  entry.uniqueGuid = someGuid(static_cast<u8>(index + 1));
  entry.firstLba = first;
  entry.lastLba = last;
  setGptName(entry, name);
}

// A disk with a table of one entry, written by us.
MemoryDisk gptDisk() {
  MemoryDisk disk(kSectors);
  GptImage image;
  EXPECT_EQ(GptImage::create(kSectors - 1, 512, someGuid(7), image), Error::none);
  addEntry(image, 0, 2048, 4095, "first");
  EXPECT_EQ(image.write(disk), Error::none);
  return disk;
}

void flipByte(MemoryDisk& disk, u64 lba, std::size_t at) {
  std::vector<u8> sector = disk.sector(lba);
  sector[at] ^= 0xFF;
  disk.setSector(lba, sector);
}

u64 entryEnd(MemoryDisk& disk) {
  GptImage image;
  return GptImage::read(disk, image) == Error::none ? u64{image.entry(0).lastLba} : 0;
}

TEST(Gpt, EachDamageHasItsAnswer) {
  struct Damage {
    const char* what;
    std::size_t at;
    u32 value;
    Failure expected;  // what is wrong here, or with the destroyed backup that is tried next
  };
  // Fields are set in the primary header and its checksum is made right again.
  const Damage damages[] = {
      {"revision", 8, 0x00010001, Error::gptRevision},
      {"no entries", 80, 0, Error::gptSignature},
      {"small entries", 84, 64, Error::gptSignature},
      {"256 entries", 80, 256, Error::entriesDoNotFit},
      {"endless entries", 84, 0xFFFFFFFF, Error::entriesDoNotFit},
      {"first usable inside the table", 40, 3, Error::gptSignature},
      {"last usable beyond the backup", 48, kSectors - 2, Error::gptSignature},
      {"entry array in the usable area", 72, 40, Error::gptSignature},
  };
  for (const Damage& damage : damages) {
    MemoryDisk disk = gptDisk();
    flipByte(disk, kSectors - 1, 0);
    std::vector<u8> sector = disk.sector(1);
    *recordAt<Le32>(std::span(sector), damage.at) = damage.value;
    auto& header = *recordAt<GptHeaderRecord>(std::span(sector));
    header.headerCrc = 0;
    header.headerCrc = crc32(std::span(sector).first(kGptHeaderSize));
    disk.setSector(1, sector);
    GptImage image;
    EXPECT_EQ(GptImage::read(disk, image), damage.expected) << damage.what;
  }
}

// Changes the entry's end from 4095 to 6000 on any disk below.
Failure changeEnd(DiskDevice& disk) {
  GptImage image;
  if (const Failure problem = GptImage::read(disk, image); problem != Error::none) return problem;
  image.entry(0).lastLba = 6000;
  return image.write(disk);
}

TEST(Gpt, EveryPowerCutLeavesTheOldOrTheNewTable) {
  MemoryDisk noBackup = gptDisk();
  flipByte(noBackup, kSectors - 1, 0);
  MemoryDisk noPrimary = gptDisk();
  flipByte(noPrimary, 1, 0);
  const MemoryDisk sound = gptDisk();
  for (const MemoryDisk* before : {&sound, &std::as_const(noBackup), &std::as_const(noPrimary)}) {
    const auto change = [](FaultRound& round) { EXPECT_EQ(changeEnd(round.disk()), Error::none); };
    forEachPowerCut(*before, change, [](MemoryDisk& after) {
      const u64 end = entryEnd(after);
      EXPECT_TRUE(end == 4095 || end == 6000) << end;
    });
  }
}

TEST(Gpt, ANewTableAppearsOnlyWithItsLastWrite) {
  GptImage image;
  ASSERT_EQ(GptImage::create(kSectors - 1, 512, someGuid(9), image), Error::none);
  const auto write = [&](FaultRound& round) { EXPECT_EQ(image.write(round.disk()), Error::none); };
  forEachPowerCut(MemoryDisk(kSectors), write, [](MemoryDisk& after) {
    if (after.sector(0)[450] != 0xEE) return;
    GptImage read;
    EXPECT_EQ(GptImage::read(after, read), Error::none);
    EXPECT_EQ(read.backupState(after), GptBackupState::sound);
  });
}

TEST(Gpt, EveryFailedRequestIsSaidAndKeepsAValidTable) {
  forEachFault(gptDisk(), kFailedRequests, [](FaultRound& round) {
    round.begin();
    const Failure problem = changeEnd(round.disk());
    EXPECT_TRUE(problem || !round.wasHit() || round.fault().kind == Fault::Kind::read);
    const u64 end = entryEnd(round.medium());
    EXPECT_TRUE(end == 4095 || end == 6000) << end;
  });
}

TEST(Gpt, NamesKeepWhatUtf16CanSay) {
  GptEntryRecord entry;
  setGptName(entry, std::string(50, 'x'));
  EXPECT_EQ(gptName(entry), std::string(36, 'x'));
  setGptName(entry, std::string(35, 'x') + "\U0001F4BE");
  EXPECT_EQ(gptName(entry), std::string(35, 'x'));  // half a character is none
  setGptName(entry, "a\xFF\xC0\x80z");
  EXPECT_EQ(gptName(entry).front(), 'a');
  EXPECT_EQ(gptName(entry).back(), 'z');
  entry.name[0] = u16{0xD800};
  entry.name[1] = u16{0x0041};
  entry.name[2] = u16{0};
  EXPECT_EQ(gptName(entry), "\uFFFDA");
}

}  // namespace
}  // namespace tallowin
