// What is not opened, and that nobody's number is believed.
#include <gtest/gtest.h>

#include <algorithm>
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
      {{"", "qcow2", "", {}}, "qcow2"},
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

// One thing of a sound image is broken, and one answer is expected.
struct Damage {
  const char* what;
  std::function<void(std::vector<u8>&)> apply;
  Failure expected;
};

void expectAnswers(const FileBytes& sound, std::span<const Damage> damages) {
  ASSERT_TRUE(openBytes(sound));
  for (const Damage& damage : damages) {
    const auto bytes = std::make_shared<std::vector<u8>>(*sound);
    damage.apply(*bytes);
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
      {"block over the header", [](auto& b) { setBlock(b, 5, 1); }, Error::corrupt},
      {"block over the table", [](auto& b) { setBlock(b, 5, 3); }, Error::corrupt},
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
  expectAnswers(smallDynamicVhd(), damages);
}

TEST(ImageRefusals, ATruncatedVhdIsOnlyToBeRead) {
  const FileBytes bytes = smallDynamicVhd();
  setBlock(*bytes, 5, 1000);
  const auto image = openBytes(bytes);
  ASSERT_TRUE(image);
  EXPECT_TRUE(image->isReadOnly());
  std::vector<u8> sector(512, 0xEE);
  EXPECT_EQ(image->read(5 * 32, sector), Error::none);
  EXPECT_EQ(sector, std::vector<u8>(512));
  EXPECT_EQ(image->write(0, sector), Error::write);
}

TEST(ImageRefusals, ASectorWithoutATableEntryCannotBeWritten) {
  const FileBytes bytes = smallDynamicVhd();
  headerOf(*bytes).maxTableEntries = 10;
  const auto image = openBytes(bytes);
  ASSERT_TRUE(image);
  std::vector<u8> sector(512, 0xEE);
  EXPECT_EQ(image->read(10 * 32, sector), Error::none);
  EXPECT_EQ(sector, std::vector<u8>(512));
  EXPECT_EQ(image->write(10 * 32, sector), Error::fileTooLarge);
  EXPECT_EQ(image->write(10 * 32 - 1, sector), Error::none);
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
      {"both directories in one place",
       [](auto& b) { vmdkOf(b).redundantDirectoryOffset = vmdkOf(b).directoryOffset; },
       Error::corrupt},
  };
  expectAnswers(createInMemory(kVmdkSample, "64M"), damages);
}

TEST(ImageRefusals, AGrainOverTheTablesIsNeverTouched) {
  const FileBytes bytes = createInMemory(kVmdkSample, "8M");
  const u64 tableSector = directoryEntry(*bytes, 0);
  for (const u32 grain : {u32{1}, static_cast<u32>(tableSector - 1), kAllOnes32}) {
    *recordAt<VmdkEntry>(std::span(*bytes), tableSector * 512) = grain;
    const auto image = openBytes(bytes);
    ASSERT_TRUE(image);
    std::vector<u8> sector(512);
    EXPECT_EQ(image->read(0, sector), Error::corrupt) << grain;
    EXPECT_EQ(image->write(0, sector), Error::corrupt) << grain;
  }
}

TEST(ImageRefusals, AGrainBehindTheEndIsRefusedAlsoWhenTheFileHasGrownOverIt) {
  const FileBytes bytes = createInMemory(kVmdkSample, "100M");
  const u64 firstNewSector = (bytes->size() + 4095) / 4096 * 8;
  *recordAt<VmdkEntry>(std::span(*bytes), directoryEntry(*bytes, 0) * u64{512}) =
      static_cast<u32>(firstNewSector);
  const auto image = openBytes(bytes);
  ASSERT_TRUE(image);
  const std::vector<u8> data(kMiB, 0xAA);
  ASSERT_EQ(image->write(40 * kMiB / 512, data), Error::none);
  ASSERT_GT(bytes->size(), (firstNewSector + 128) * 512);
  std::vector<u8> sector(512);
  EXPECT_EQ(image->read(0, sector), Error::corrupt);
  EXPECT_EQ(image->write(0, sector), Error::corrupt);
  ASSERT_EQ(image->read(40 * kMiB / 512, sector), Error::none);
  EXPECT_EQ(sector, std::vector<u8>(512, 0xAA));
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
    EXPECT_EQ(image->write(0, std::vector<u8>(512)), Error::write);
    EXPECT_EQ(image->writeZeros(0, 1), Error::write);
    EXPECT_EQ(image->flush(), Error::none);
  }
  EXPECT_EQ(folder.read("image"), before);
}

}  // namespace
}  // namespace tallowin
