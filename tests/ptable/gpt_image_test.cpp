#include "ptable/gpt/gpt_image.h"

#include <gtest/gtest.h>

#include "base/crc32.h"
#include "ptable/table_bench.h"

namespace tallowin {
namespace {

constexpr u64 kSectors = 100 * kMiB / 512;

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
    MemoryDisk disk = diskFromScript(kSectors, "label: gpt\nstart=2048,size=2048\n");
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
