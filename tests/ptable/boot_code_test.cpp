// The boot code on an emulated machine.
#include "ptable/mbr/boot_code.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "ptable/table_bench.h"
#include "support/boot_machine.h"
#include "support/disk_file.h"

extern "C" {
// Assembled from fake_firmware.S.
extern const tallowin::u8 fakeFirmware[512];
}

namespace tallowin {
namespace {

constexpr u32 kPartition = 2048;
constexpr const char* kStarted = "the active partition was started";

// A boot sector that tells that it runs, and that DL and SI are right: DL is
// the first disk and SI points at an active slot.
std::vector<u8> bootSector() {
  std::vector<u8> code = {
      0x80, 0xFA, 0x80,  // cmp dl, 0x80
      0x75, 0x1B,        // jne stop
      0x80, 0x3C, 0x80,  // cmp byte [si], 0x80
      0x75, 0x16,        // jne stop
      0xBE, 0x00, 0x7D,  // mov si, 0x7d00
      0xAC,              // next: lodsb
      0x84, 0xC0,        // test al, al
      0x74, 0x0E,        // jz stop
      0x31, 0xDB,        // xor bx, bx
      0xB4, 0x0E,        // mov ah, 0x0e
      0xCD, 0x10,        // int 0x10
      0xEB, 0xF3,        // jmp next
  };
  code.resize(0x20, 0x90);
  code.insert(code.end(), {0xF4, 0xEB, 0xFD});  // stop: hlt, jmp stop
  code.resize(512);
  std::ranges::copy(std::string_view(kStarted), code.begin() + 0x100);
  code[510] = 0x55;
  code[511] = 0xAA;
  return code;
}

MbrSlotRecord slotAt(u32 startLba, u8 bootIndicator = kBootActive) {
  return slot(0x83, startLba, 2048, bootIndicator);
}

class BootCodeTest : public testing::TestWithParam<BootCode> {
 protected:
  void SetUp() override {
    TALLOWIN_NEEDS_BOOT_MACHINE();
    disk_.setSector(kPartition, bootSector());
  }

  void expectShown(const std::vector<MbrSlotRecord>& slots, const std::string& wanted) {
    MbrRecord mbr{};
    std::ranges::copy(slots, mbr.slots.begin());
    installBootCode(GetParam(), mbr);
    disk_.setSector(0, bytesOf(mbr));
    expectShown(wanted);
  }
  // The disk is started, and the screen shows the text.
  std::string expectShown(const std::string& wanted) {
    const TempFolder folder;
    storeDisk(disk_, folder.file("disk.img"));
    BootMachine machine(folder.file("disk.img"));
    EXPECT_TRUE(machine.shows(wanted)) << machine.screen();
    return machine.screen();
  }

  MemoryDisk disk_{40960};
};

TEST_P(BootCodeTest, StartsTheActivePartition) {
  expectShown({slotAt(4096, 0), slotAt(kPartition)}, kStarted);
}

TEST_P(BootCodeTest, RefusesATableWithoutOneClearActiveSlot) {
  for (const auto& slots :
       {std::vector{slotAt(kPartition), slotAt(4096)}, std::vector<MbrSlotRecord>{},
        std::vector{slotAt(kPartition), slotAt(kPartition, 0x01)}})
    expectShown(slots, "Invalid partition table");
}

TEST_P(BootCodeTest, TellsThatTheBootSectorCannotBeRead) {
  expectShown({slotAt(0x7FFFFFFF)}, "Error loading operating system");
}

TEST_P(BootCodeTest, TellsThatThereIsNothingToStart) {
  expectShown({slotAt(4096)}, "Missing operating system");
}

// On firmware without disk extensions the CHS address counts, and a TPM is told what is started.
TEST_P(BootCodeTest, MeasuresAndStartsByAddressOnOldFirmware) {
  MbrRecord mbr{};
  mbr.slots[0] = slotAt(0x7FFFFFFF);
  mbr.slots[0].startChs = {0, 41, 0};
  installBootCode(GetParam(), mbr);
  disk_.setSector(0, std::span<const u8>(fakeFirmware));
  disk_.setSector(1, bytesOf(mbr));
  disk_.setSector(40, bootSector());
  const std::string shown = expectShown(kStarted);
  const std::string measured = "[self][sector]" + std::string(kStarted);
  EXPECT_EQ(shown.find(measured) != std::string::npos, GetParam() == BootCode::measuring) << shown;
  EXPECT_EQ(shown.find("[?]"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(BothVariants, BootCodeTest,
                         testing::Values(BootCode::standard, BootCode::measuring),
                         [](const auto& variant) {
                           return variant.param == BootCode::standard ? "standard" : "measuring";
                         });

}  // namespace
}  // namespace tallowin
