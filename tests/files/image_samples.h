// Image files for the tests: from the independent program, and small ones made here.
#pragma once

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "files/image_container.h"
#include "files/vhd_record.h"
#include "support/image_files.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {

struct SampleForm {
  const char* name;
  const char* format;  // as the independent program calls it
  const char* options;
  ImageForm form;
};
inline std::ostream& operator<<(std::ostream& out, const SampleForm& form) {
  return out << form.name;
}

inline constexpr SampleForm kRawSample = {"raw", "raw", "", ImageForm::raw};
inline constexpr SampleForm kFixedVhdSample = {"FixedVhd", "vpc", "subformat=fixed,force_size=on",
                                               ImageForm::vhd};
inline constexpr SampleForm kDynamicVhdSample = {"DynamicVhd", "vpc",
                                                 "subformat=dynamic,force_size=on", ImageForm::vhd};
inline constexpr SampleForm kVmdkSample = {"SparseVmdk", "vmdk", "subformat=monolithicSparse",
                                           ImageForm::vmdk};

inline std::string createImage(const TempFolder& folder, const SampleForm& form,
                               const std::string& size) {
  std::vector<std::string> command = {"qemu-img", "create", "-q", "-f", form.format};
  if (*form.options != '\0') command.insert(command.end(), {"-o", form.options});
  command.insert(command.end(), {folder.file("image"), size});
  const ProgramResult result = runProgram(command);
  EXPECT_EQ(result.status, 0) << result.output;
  return folder.file("image");
}

inline FileBytes createInMemory(const SampleForm& form, const std::string& size) {
  const TempFolder folder;
  createImage(folder, form, size);
  const std::string bytes = folder.read("image");
  return std::make_shared<std::vector<u8>>(bytes.begin(), bytes.end());
}

inline std::unique_ptr<ImageContainer> openBytes(FileBytes bytes, ImageFailure* why = nullptr) {
  std::unique_ptr<ImageFile> file = std::make_unique<MemoryImageFile>(std::move(bytes));
  ImageFailure failure;
  auto image = openImage(file, failure);
  if (why != nullptr) *why = failure;
  return image;
}

inline std::unique_ptr<ImageContainer> openPath(const std::string& path) {
  ImageFailure failure;
  auto file = openHostImageFile(path, ImageAccess::readWrite, failure);
  auto image = file ? openImage(file, failure) : nullptr;
  EXPECT_TRUE(image) << failure.reason;
  return image;
}

// A dynamic VHD of 64 blocks, nothing allocated.
inline FileBytes smallDynamicVhd(u32 blockBytes = 16 * kKiB) {
  constexpr u32 kBlocks = 64;
  VhdFooter footer{};
  std::copy(kVhdFooterCookie.begin(), kVhdFooterCookie.end(), footer.cookie);
  footer.dataOffset = kVhdDynamicHeaderOffset;
  footer.currentSizeBytes = u64{kBlocks} * blockBytes;
  footer.diskType = static_cast<u32>(VhdDiskType::dynamic);
  footer.checksum = vhdChecksum(footer);
  VhdDynamicHeader header{};
  std::copy(kVhdHeaderCookie.begin(), kVhdHeaderCookie.end(), header.cookie);
  header.tableOffset = kVhdFirstFreeOffset;
  header.maxTableEntries = kBlocks;
  header.blockSizeBytes = blockBytes;
  header.checksum = vhdChecksum(header);
  auto bytes = std::make_shared<std::vector<u8>>();
  const auto add = [&](std::span<const u8> part) {
    bytes->insert(bytes->end(), part.begin(), part.end());
  };
  add(bytesOf(footer));
  add(bytesOf(header));
  bytes->resize(bytes->size() + 256);
  add(std::vector<u8>(512, 0xFF));
  add(bytesOf(footer));
  return bytes;
}

}  // namespace tallowin
