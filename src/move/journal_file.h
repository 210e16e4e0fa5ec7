// `JournalFile`: what has to outlive the program while data is on its way.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "move/journal_storage.h"

namespace tallowin {

// A journal says what is being done (its description, for whoever continues), has an attachment
// that does not change, a small state that is replaced as a whole, and a body of bytes at offsets
// that its user chooses.
class JournalFile {
 public:
  static constexpr std::size_t kMaxStateBytes = 4000;

  // All of it is durable when it returns. write, noSpaceLeft, flush; fileTooLarge: the state.
  static Failure create(std::unique_ptr<JournalStorage> storage, std::string_view description,
                        std::span<const u8> attachment, std::span<const u8> state,
                        std::unique_ptr<JournalFile>& journal);
  // notThisFormat: it is no journal, or the making of it was cut short, so that nothing was begun;
  // corrupt: it was whole once; read, outOfMemory.
  static Failure open(std::unique_ptr<JournalStorage> storage,
                      std::unique_ptr<JournalFile>& journal);

  const std::string& description() const { return description_; }
  std::span<const u8> attachment() const { return attachment_; }
  std::span<const u8> state() const { return state_; }

  // When it returns the new state is durable, and so is what was written into the body before it.
  // After a power cut in it there is the old or the new state; the new one may then be there
  // without what was written into the body since the last sync. write, noSpaceLeft, flush.
  Failure setState(std::span<const u8> state);

  // write, noSpaceLeft: durable after sync().
  Failure writeBody(u64 offset, std::span<const u8> bytes);
  // seekFailed: it was never written so far; read.
  Failure readBody(u64 offset, std::span<u8> bytes);
  Failure sync() { return storage_->sync(); }

 private:
  explicit JournalFile(std::unique_ptr<JournalStorage> storage) : storage_(std::move(storage)) {}

  Failure writeHeader();
  Failure readHeader();
  Failure readText(u32 descriptionBytes, u32 attachmentBytes);
  Failure writeState(std::span<const u8> state);
  Failure readStates();
  void takeState(std::span<const u8> block);

  std::unique_ptr<JournalStorage> storage_;
  std::string description_;
  std::vector<u8> attachment_;
  std::vector<u8> state_;
  u64 sequence_ = 0;  // of the state; 0: there is none
  u32 textChecksum_ = 0;
  u64 bodyOffset_ = 0;
};

}  // namespace tallowin
