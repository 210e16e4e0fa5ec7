// The boot code on an emulated machine.
#include "ptable/mbr/boot_code.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "disk/memory_disk.h"
#include "support/disk_file.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

extern "C" {
// Assembled from fake_firmware.S.
extern const tallowin::u8 fakeFirmware[512];
}

namespace tallowin {
namespace {

constexpr u32 kPartition = 2048;
constexpr const char* kStarted = "the active partition was started";

// What the machine shows (the firmware copies its screen to the serial line) until `wanted`
// appears or the time is over.
std::string shownByMachine(MemoryDisk& disk, const std::string& wanted) {
  const TempFolder folder;
  storeDisk(disk, folder.file("disk.img"));
  std::array<int, 2> serial{};
  if (::pipe2(serial.data(), O_CLOEXEC) != 0) return "no pipe";
  const pid_t machine =
      startProgram({"qemu-system-i386", "-machine", "pc,graphics=off", "-nodefaults", "-display",
                    "none", "-serial", "stdio", "-no-reboot", "-boot", "c", "-drive",
                    "file=" + folder.file("disk.img") + ",format=raw,if=ide"},
                   {{serial[1], STDOUT_FILENO}});
  ::close(serial[1]);
  std::string shown;
  while (machine > 0 && shown.find(wanted) == std::string::npos) {
    constexpr int kMilliseconds = 60'000;
    pollfd wait{serial[0], POLLIN, 0};
    std::array<char, 4096> piece{};
    if (::poll(&wait, 1, kMilliseconds) <= 0) break;
    const ssize_t got = ::read(serial[0], piece.data(), piece.size());
    if (got <= 0) break;
    shown.append(piece.data(), static_cast<std::size_t>(got));
  }
  ::close(serial[0]);
  if (machine > 0) {
    ::kill(machine, SIGKILL);
    ::waitpid(machine, nullptr, 0);
  }
  return shown;
}

// A boot sector that tells on the serial line that it runs, and that DL and SI are right: DL is
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
      0xBA, 0xF8, 0x03,  // mov dx, 0x3f8
      0xEE,              // out dx, al
      0xEB, 0xF5,        // jmp next
  };
  code.resize(0x20, 0x90);
  code.insert(code.end(), {0xF4, 0xEB, 0xFD});  // stop: hlt, jmp stop
  code.resize(512);
  std::ranges::copy(std::string_view(kStarted), code.begin() + 0x100);
  code[510] = 0x55;
  code[511] = 0xAA;
  return code;
}

MbrSlotRecord slotAt(u32 startLba) {
  MbrSlotRecord slot{};
  slot.bootIndicator = kBootActive;
  slot.type = 0x83;
  slot.startLba = startLba;
  slot.sectorCount = 2048;
  return slot;
}

class BootCodeTest : public testing::TestWithParam<BootCode> {
 protected:
  BootCodeTest() { disk_.setSector(kPartition, bootSector()); }

  std::string shownWith(const std::vector<MbrSlotRecord>& slots, const std::string& wanted) {
    MbrRecord mbr{};
    std::ranges::copy(slots, mbr.slots.begin());
    installBootCode(GetParam(), mbr);
    disk_.setSector(0, bytesOf(mbr));
    return shownByMachine(disk_, wanted);
  }
  void expectShown(const std::vector<MbrSlotRecord>& slots, const std::string& wanted) {
    if (!hasProgram("qemu-system-i386")) GTEST_SKIP() << "no emulator";
    const std::string shown = shownWith(slots, wanted);
    EXPECT_NE(shown.find(wanted), std::string::npos) << shown;
  }

  MemoryDisk disk_{40960};
};

TEST_P(BootCodeTest, StartsTheActivePartition) {
  MbrSlotRecord other = slotAt(4096);
  other.bootIndicator = 0;
  expectShown({other, slotAt(kPartition)}, kStarted);
}

TEST_P(BootCodeTest, RefusesATableWithoutOneClearActiveSlot) {
  MbrSlotRecord odd = slotAt(kPartition);
  odd.bootIndicator = 0x01;
  for (const auto& slots : {std::vector{slotAt(kPartition), slotAt(4096)},
                            std::vector<MbrSlotRecord>{}, std::vector{slotAt(kPartition), odd}})
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
  if (!hasProgram("qemu-system-i386")) GTEST_SKIP() << "no emulator";
  MbrRecord mbr{};
  mbr.slots[0] = slotAt(0x7FFFFFFF);
  mbr.slots[0].startChs = {0, 41, 0};
  installBootCode(GetParam(), mbr);
  disk_.setSector(0, std::span<const u8>(fakeFirmware));
  disk_.setSector(1, bytesOf(mbr));
  disk_.setSector(40, bootSector());
  const std::string shown = shownByMachine(disk_, kStarted);
  EXPECT_NE(shown.find(kStarted), std::string::npos) << shown;
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
