// What is not opened, and that nobody's number is believed.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "files/image_samples.h"
#include "files/vmdk_record.h"

namespace tallowin {
namespace {

struct RefusedForm {
  SampleForm form;
  const char* named;  // in the reason
};

TEST(ImageRefusals, OtherFormsAreRefusedByTheirName) {
  const RefusedForm cases[] = {
      {{"", "vmdk", "subformat=streamOptimized", {}}, "stream-optimised"},
      {{"", "vmdk", "subformat=monolithicFlat", {}}, "VMDK descriptor"},
      {{"", "vmdk", "subformat=twoGbMaxExtentSparse", {}}, "VMDK descriptor"},
      {{"", "qcow2", "", {}}, "qcow2,"},
      {{"", "qcow", "", {}}, "qcow,"},
      {{"", "parallels", "", {}}, "Parallels"},
      {{"", "qed", "", {}}, "QED"},
      {{"", "vhdx", "", {}}, "VHDX"},
      {{"", "vdi", "", {}}, "VDI"},
  };
  for (const RefusedForm& c : cases) {
    ImageFailure failure;
    EXPECT_FALSE(openBytes(createInMemory(c.form, "8M"), &failure)) << c.named;
    EXPECT_EQ(failure.error, Error::unsupportedForm) << c.named;
    EXPECT_NE(failure.reason.find(c.named), std::string::npos) << failure.reason;
    EXPECT_NE(failure.reason.find("onvert"), std::string::npos) << "what to do: " << failure.reason;
  }
}

TEST(ImageRefusals, APackedImageIsNoDisk) {
  for (const char* packer : {"gzip", "xz"}) {
    const TempFolder folder;
    folder.sparse("disk.img", kMiB);
    ASSERT_EQ(runProgram({packer, folder.file("disk.img")}).status, 0);
    const std::string path =
        folder.file("disk.img") + (std::string_view(packer) == "xz" ? ".xz" : ".gz");
    ImageFailure failure;
    auto file = openHostImageFile(path, ImageAccess::readWrite, failure);
    ASSERT_TRUE(file) << failure.reason;
    EXPECT_FALSE(openImage(file, failure));
    EXPECT_NE(failure.reason.find(packer), std::string::npos) << failure.reason;
  }
}

// One thing of a sound image is broken, and one answer is expected.
struct Damage {
  const char* what;
  std::function<void(std::vector<u8>&)> apply;
  Error expected;
};

void expectAnswers(
    const FileBytes& sound, std::span<const Damage> damages,
    const std::function<void(std::vector<u8>&)>& seal = [](auto&) {}) {
  ASSERT_TRUE(openBytes(sound));
  for (const Damage& damage : damages) {
    const auto bytes = std::make_shared<std::vector<u8>>(*sound);
    damage.apply(*bytes);
    seal(*bytes);
    ImageFailure failure;
    EXPECT_EQ(openBytes(bytes, &failure) != nullptr, damage.expected == Error::none) << damage.what;
    EXPECT_EQ(failure.error, damage.expected) << damage.what << ": " << failure.reason;
    EXPECT_EQ(failure.reason.empty(), damage.expected == Error::none) << damage.what;
  }
}

VhdFooter& footerOf(std::vector<u8>& bytes) {
  return *recordAt<VhdFooter>(std::span(bytes), bytes.size() - sizeof(VhdFooter));
}
VhdDynamicHeader& headerOf(std::vector<u8>& bytes) {
  return *recordAt<VhdDynamicHeader>(std::span(bytes), kVhdDynamicHeaderOffset);
}
void setBlock(std::vector<u8>& bytes, u32 block, u32 sector) {
  *recordAt<VhdTableEntry>(std::span(bytes), kVhdFirstFreeOffset + block * 4) = sector;
}
// So that what a record states is looked at, and not only that it is damaged.
void setVhdChecksums(std::vector<u8>& bytes) {
  headerOf(bytes).checksum = vhdChecksum(headerOf(bytes));
  footerOf(bytes).checksum = vhdChecksum(footerOf(bytes));
}
// A dynamic VHD with room for blocks between its table and sector 200.
FileBytes roomyVhd() {
  const FileBytes bytes = smallDynamicVhd();
  bytes->insert(bytes->end() - 512, 200 * 512 - bytes->size(), u8{0});
  return bytes;
}

TEST(ImageRefusals, HostileVhd) {
  const Damage damages[] = {
      {"differencing", [](auto& b) { footerOf(b).diskType = 4; }, Error::unsupportedForm},
      {"unknown type", [](auto& b) { footerOf(b).diskType = 9; }, Error::unsupportedForm},
      {"leading footer only", [](auto& b) { b.resize(b.size() - 512); }, Error::unsupportedForm},
      {"no size", [](auto& b) { footerOf(b).currentSizeBytes = 511; }, Error::corrupt},
      {"fixed, longer than the file", [](auto& b) { footerOf(b).diskType = 2; }, Error::corrupt},
      {"header cookie", [](auto& b) { headerOf(b).cookie[0] = 'x'; }, Error::corrupt},
      {"block size 0", [](auto& b) { headerOf(b).blockSizeBytes = 0; }, Error::corrupt},
      {"huge block size", [](auto& b) { headerOf(b).blockSizeBytes = 0x80000000; }, Error::corrupt},
      {"block size with a rest", [](auto& b) { headerOf(b).blockSizeBytes = 777; }, Error::corrupt},
      {"table over the headers", [](auto& b) { headerOf(b).tableOffset = 512; }, Error::corrupt},
      {"table that wraps", [](auto& b) { headerOf(b).tableOffset = kAllOnes64; }, Error::corrupt},
      {"table beyond the file",
       [](auto& b) {
         headerOf(b).maxTableEntries = kAllOnes32;
         footerOf(b).currentSizeBytes = kAllOnes64;
       },
       Error::corrupt},
      {"table larger than the file", [](auto& b) { headerOf(b).maxTableEntries = 100'000; },
       Error::corrupt},
      {"table too small for the disk", [](auto& b) { headerOf(b).maxTableEntries = 63; },
       Error::corrupt},
      {"header elsewhere", [](auto& b) { footerOf(b).dataOffset = 2048; }, Error::corrupt},
      {"block over the header", [](auto& b) { setBlock(b, 5, 1); }, Error::corrupt},
      {"block over the table", [](auto& b) { setBlock(b, 5, 3); }, Error::corrupt},
      {"block over the spare end of the table",
       [](auto& b) {
         headerOf(b).maxTableEntries = 200;
         setBlock(b, 5, 4);
       },
       Error::corrupt},
      {"block over the footer", [](auto& b) { setBlock(b, 5, 168); }, Error::corrupt},
      {"block behind the end", [](auto& b) { setBlock(b, 5, 1000); }, Error::corrupt},
      {"two blocks over each other",
       [](auto& b) {
         setBlock(b, 5, 100);
         setBlock(b, 6, 132);
       },
       Error::corrupt},
      {"two blocks side by side",
       [](auto& b) {
         setBlock(b, 6, 100);
         setBlock(b, 5, 133);
       },
       Error::none},
  };
  expectAnswers(roomyVhd(), damages, setVhdChecksums);
}

TEST(ImageRefusals, AVhdWithAWrongChecksumOrAShortFooter) {
  const Damage damages[] = {
      {"header", [](auto& b) { headerOf(b).parent[100] ^= 1; }, Error::corrupt},
      {"footer", [](auto& b) { footerOf(b).uniqueId[3] ^= 1; }, Error::corrupt},
      {"a footer of 511 bytes", [](auto& b) { b.pop_back(); }, Error::unsupportedForm},
      {"the same of a fixed one",
       [](auto& b) {
         std::fill_n(b.begin(), 8, u8{0});
         b.pop_back();
       },
       Error::unsupportedForm},
  };
  expectAnswers(roomyVhd(), damages);
}

TEST(ImageRefusals, AFixedVhdThatLostItsFooterIsNoRawDisk) {
  const TempFolder folder;
  const std::string path = folder.file("disk.VHD");
  std::filesystem::rename(createImage(folder, kFixedVhdSample, "4M"), path);
  ASSERT_TRUE(openPath(path));
  for (const u64 size : {4 * kMiB, 4 * kMiB - 512, u64{512}}) {
    std::filesystem::resize_file(path, size);
    ImageFailure failure;
    auto file = openHostImageFile(path, ImageAccess::readWrite, failure);
    EXPECT_FALSE(openImage(file, failure)) << size;
    EXPECT_EQ(failure.error, Error::corrupt) << size << failure.reason;
  }
}

VmdkHeader& vmdkOf(std::vector<u8>& bytes) { return *recordAt<VmdkHeader>(std::span(bytes)); }

VmdkEntry& directoryEntry(std::vector<u8>& bytes, u32 index) {
  return *recordAt<VmdkEntry>(std::span(bytes), vmdkOf(bytes).directoryOffset * 512 + index * 4);
}

void replaceText(std::vector<u8>& bytes, std::string_view from, std::string_view to) {
  const auto at = std::search(bytes.begin(), bytes.end(), from.begin(), from.end());
  ASSERT_NE(at, bytes.end());
  std::copy(to.begin(), to.end(), at);
}

TEST(ImageRefusals, HostileVmdk) {
  const Damage damages[] = {
      {"compressed", [](auto& b) { vmdkOf(b).flags = 0x10003; }, Error::unsupportedForm},
      {"markers", [](auto& b) { vmdkOf(b).flags = 0x20003; }, Error::unsupportedForm},
      {"version", [](auto& b) { vmdkOf(b).version = 4; }, Error::unsupportedForm},
      {"no descriptor", [](auto& b) { vmdkOf(b).descriptorSize = 0; }, Error::unsupportedForm},
      {"another createType",
       [](auto& b) { replaceText(b, "monolithicSparse", "monolithicFloat?"); },
       Error::unsupportedForm},
      {"createType in another case",
       [](auto& b) { replaceText(b, "monolithicSparse", "MONOLITHICsPARSE"); }, Error::none},
      {"a parent", [](auto& b) { replaceText(b, "parentCID=ffffffff", "parentCID=12345678"); },
       Error::unsupportedForm},
      {"huge descriptor", [](auto& b) { vmdkOf(b).descriptorSize = kAllOnes64; }, Error::corrupt},
      {"descriptor outside", [](auto& b) { vmdkOf(b).descriptorOffset = kAllOnes64 / 512; },
       Error::corrupt},
      {"no capacity", [](auto& b) { vmdkOf(b).capacity = 0; }, Error::corrupt},
      {"capacity that wraps", [](auto& b) { vmdkOf(b).capacity = kAllOnes64; }, Error::corrupt},
      {"directory larger than the file", [](auto& b) { vmdkOf(b).capacity = u64{1} << 40; },
       Error::corrupt},
      {"directory larger than memory", [](auto& b) { vmdkOf(b).capacity = u64{1} << 54; },
       Error::unsupportedForm},
      {"grain size 0", [](auto& b) { vmdkOf(b).grainSize = 0; }, Error::corrupt},
      {"grain size 100", [](auto& b) { vmdkOf(b).grainSize = 100; }, Error::corrupt},
      {"huge grains", [](auto& b) { vmdkOf(b).grainSize = u64{1} << 63; }, Error::corrupt},
      {"no table entries", [](auto& b) { vmdkOf(b).entriesPerTable = 0; }, Error::corrupt},
      {"huge tables", [](auto& b) { vmdkOf(b).entriesPerTable = kAllOnes32; }, Error::corrupt},
      {"directory outside", [](auto& b) { vmdkOf(b).directoryOffset = kAllOnes64; },
       Error::corrupt},
      {"no directory", [](auto& b) { vmdkOf(b).directoryOffset = 0; }, Error::corrupt},
      {"table outside", [](auto& b) { directoryEntry(b, 0) = kAllOnes32; }, Error::corrupt},
      {"table over the header", [](auto& b) { directoryEntry(b, 0) = 1; }, Error::corrupt},
      {"one table twice", [](auto& b) { directoryEntry(b, 1) = directoryEntry(b, 0); },
       Error::corrupt},
      {"a table that only the redundant directory has",
       [](auto& b) { directoryEntry(b, 0) = kVmdkNotAllocated; }, Error::corrupt},
      {"both directories in one place",
       [](auto& b) { vmdkOf(b).redundantDirectoryOffset = vmdkOf(b).directoryOffset; },
       Error::corrupt},
  };
  expectAnswers(createInMemory(kVmdkSample, "64M"), damages);
}

TEST(ImageRefusals, AVmdkWhoseGrainsAreNotItsOwn) {
  // The independent program wrote a grain in each of two tables, and the disk's last one.
  const TempFolder folder;
  const std::string path = createImage(folder, kVmdkSample, "35914240");
  ASSERT_EQ(runProgram({"qemu-io", "-f", "vmdk", "-c", "write -P 1 0 192k", "-c",
                        "write -P 2 32M 64k", "-c", "write -P 3 35913728 512", path})
                .status,
            0);
  const std::string text = folder.read("image");
  const auto grain = [](std::vector<u8>& bytes, u32 table, u32 index) -> VmdkEntry& {
    return *recordAt<VmdkEntry>(std::span(bytes),
                                directoryEntry(bytes, table) * u64{512} + index * 4);
  };
  const Damage damages[] = {
      {"two entries on one grain", [&](auto& b) { grain(b, 0, 1) = grain(b, 0, 0); },
       Error::corrupt},
      {"two tables on one grain", [&](auto& b) { grain(b, 1, 5) = grain(b, 0, 1); },
       Error::corrupt},
      {"grains that overlap", [&](auto& b) { grain(b, 0, 1) = grain(b, 0, 0) + 64; },
       Error::corrupt},
      {"a grain over the header", [&](auto& b) { grain(b, 1, 1) = 1; }, Error::corrupt},
      {"a grain over a table", [&](auto& b) { grain(b, 1, 1) = directoryEntry(b, 0) - 1; },
       Error::corrupt},
      {"a grain behind the end",
       [&](auto& b) { grain(b, 1, 1) = static_cast<u32>(b.size() / 512); }, Error::corrupt},
      {"a grain as far out as can be", [&](auto& b) { grain(b, 1, 1) = kAllOnes32; },
       Error::corrupt},
      {"an entry behind the end of the disk", [&](auto& b) { grain(b, 1, 40) = 1; }, Error::none},
      {"the end cut off", [&](auto& b) { b.resize(b.size() - 64 * kKiB); }, Error::corrupt},
      {"cut where only the disk is short", [&](auto& b) { b.resize(b.size() - 32 * kKiB); },
       Error::none},
  };
  expectAnswers(std::make_shared<std::vector<u8>>(text.begin(), text.end()), damages);
}

TEST(ImageRefusals, WhatAShrunkFileHeldIsAFailureAndNotZeros) {
  for (const SampleForm& form : {kRawSample, kFixedVhdSample, kDynamicVhdSample, kVmdkSample}) {
    const TempFolder folder;
    const std::string path = createImage(folder, form, "4M");
    std::vector<u8> sector(512, 0xEE);
    auto image = openPath(path);
    ASSERT_EQ(image->write(2000, sector), Error::none);
    ASSERT_EQ(image->flush(), Error::none);
    std::filesystem::resize_file(path, 600);
    const Failure failed = image->read(2000, sector);
    EXPECT_EQ(failed, Error::read) << form;
  }
}

TEST(ImageRefusals, AFileWithoutWritePermissionAndADeviceNode) {
  const TempFolder folder;
  ImageFailure failure;
  EXPECT_EQ(openHostImageFile("/dev/null", ImageAccess::readWrite, failure), nullptr);
  EXPECT_EQ(failure.error, Error::cannotOpenForReading);
  EXPECT_EQ(openHostImageFile(folder.file("none"), ImageAccess::readWrite, failure), nullptr);
  const std::string path = createImage(folder, kVmdkSample, "1M");
  const std::string before = folder.read("image");
  {
    auto file = openHostImageFile(path, ImageAccess::readOnly, failure);
    auto image = openImage(file, failure);
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->isReadOnly());
    EXPECT_EQ(image->write(0, std::vector<u8>(512)), Error::readOnlyDisk);
    EXPECT_EQ(image->clear(0, 1), Error::readOnlyDisk);
    EXPECT_EQ(image->flush(), Error::none);
  }
  EXPECT_EQ(folder.read("image"), before);
}

}  // namespace
}  // namespace tallowin
