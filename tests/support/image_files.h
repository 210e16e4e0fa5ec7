// Files for image containers that live in memory, record, or fail where a test wants it.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "files/image_file.h"

namespace tallowin {

// Shared with the test, which looks at the file after the container is gone.
using FileBytes = std::shared_ptr<std::vector<u8>>;

class MemoryImageFile : public ImageFile {
 public:
  explicit MemoryImageFile(FileBytes bytes, bool readOnly = false)
      : bytes_(std::move(bytes)), readOnly_(readOnly) {}

  u64 sizeBytes() const override { return bytes_->size(); }
  bool isReadOnly() const override { return readOnly_; }

  Failure readAt(u64 offset, std::span<u8> out) override {
    if (offset > bytes_->size() || out.size() > bytes_->size() - offset) return Error::read;
    std::copy_n(bytes_->data() + offset, out.size(), out.begin());
    return Error::none;
  }
  Failure writeAt(u64 offset, std::span<const u8> bytes, std::span<const u8> following) override {
    for (const std::span<const u8> part : {bytes, following}) {
      if (part.empty()) continue;
      if (offset > kMaxBytes || part.size() > kMaxBytes - offset) return Error::noSpaceLeft;
      bytes_->resize(std::max<u64>(bytes_->size(), offset + part.size()));
      std::copy(part.begin(), part.end(), bytes_->data() + offset);
      offset += part.size();
    }
    return Error::none;
  }
  std::optional<Failure> clearFast(u64 offset, u64 bytes) override {
    if (offset > bytes_->size() || bytes > bytes_->size() - offset) return std::nullopt;
    std::memset(bytes_->data() + offset, 0, bytes);
    return Failure();
  }
  Failure resize(u64 newSizeBytes) override {
    if (newSizeBytes > kMaxBytes) return Error::noSpaceLeft;
    bytes_->resize(newSizeBytes);
    return Error::none;
  }
  Failure flush() override { return Error::none; }

 private:
  static constexpr u64 kMaxBytes = 256 * kMiB;

  FileBytes bytes_;
  bool readOnly_;
};

// Every change of a file in order, to be played back onto what it was.
class FileLog {
 public:
  struct Step {
    enum class Kind { write, resize, flush } kind = Kind::flush;
    u64 offset = 0;  // or the new size
    std::vector<u8> bytes;
  };

  void add(Step step) { steps_.push_back(std::move(step)); }
  std::size_t size() const { return steps_.size(); }

  // The file after a power cut: the first `count` steps happened, except those behind the last
  // flush among them for which lost(index) holds.
  template <typename Lost>
  FileBytes replay(const std::vector<u8>& before, std::size_t count, Lost lost) const {
    const auto bytes = std::make_shared<std::vector<u8>>(before);
    MemoryImageFile file(bytes);
    std::size_t lastFlush = 0;
    for (std::size_t i = 0; i < count; ++i)
      if (steps_[i].kind == Step::Kind::flush) lastFlush = i;
    for (std::size_t i = 0; i < count; ++i) {
      if (i >= lastFlush && lost(i)) continue;
      if (steps_[i].kind == Step::Kind::write)
        static_cast<void>(file.writeAt(steps_[i].offset, steps_[i].bytes, {}));
      if (steps_[i].kind == Step::Kind::resize) static_cast<void>(file.resize(steps_[i].offset));
    }
    return bytes;
  }

 private:
  std::vector<Step> steps_;
};

// Records into a log, and fails the n-th change (write, resize, zero or flush; from 0): half of a
// write is done then. With `forever` all later ones fail too, as on a full disk.
class TestImageFile : public MemoryImageFile {
 public:
  struct Plan {
    std::shared_ptr<FileLog> log = std::make_shared<FileLog>();
    std::shared_ptr<u64> changes = std::make_shared<u64>(0);
    u64 failAt = kAllOnes64;
    bool forever = false;
    std::optional<Failure> clearAnswer;
  };

  TestImageFile(FileBytes bytes, Plan plan)
      : MemoryImageFile(std::move(bytes)), plan_(std::move(plan)) {}

  Failure writeAt(u64 offset, std::span<const u8> bytes, std::span<const u8> following) override {
    std::vector<u8> all(bytes.begin(), bytes.end());
    all.insert(all.end(), following.begin(), following.end());
    if (fails()) {
      all.resize(all.size() / 2 / 512 * 512);
      static_cast<void>(MemoryImageFile::writeAt(offset, all, {}));
      return Error::noSpaceLeft;
    }
    plan_.log->add({FileLog::Step::Kind::write, offset, all});
    return MemoryImageFile::writeAt(offset, all, {});
  }
  // So that zeros are writes in the log; unless the plan has an answer.
  std::optional<Failure> clearFast(u64, u64) override { return plan_.clearAnswer; }
  Failure resize(u64 newSizeBytes) override {
    if (fails()) return Error::write;
    plan_.log->add({FileLog::Step::Kind::resize, newSizeBytes, {}});
    return MemoryImageFile::resize(newSizeBytes);
  }
  Failure flush() override {
    if (fails()) return Error::flush;
    plan_.log->add({FileLog::Step::Kind::flush, 0, {}});
    return Error::none;
  }

 private:
  bool fails() {
    const u64 change = (*plan_.changes)++;
    return change == plan_.failAt || (plan_.forever && change > plan_.failAt);
  }

  Plan plan_;
};

}  // namespace tallowin
