#include "move/journal_file.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

#include "base/crc32.h"
#include "move/journal_record.h"

namespace tallowin {
namespace {

constexpr u32 kMaxDescriptionBytes = 1024 * 1024;
constexpr u32 kMaxAttachmentBytes = 1024 * 1024 * 1024;

// Of a record, up to its checksum.
template <DiskRecord Record>
u32 headChecksum(const Record& record) {
  return crc32(bytesOf(record).first(offsetof(Record, checksum)));
}

template <DiskRecord Record>
bool hasMagic(const Record& record) {
  const Record wanted;
  return std::memcmp(record.magic, wanted.magic, sizeof(record.magic)) == 0;
}

u32 stateChecksum(std::span<const u8> block, u32 stateBytes) {
  std::vector<u8> covered(block.begin(), block.begin() + offsetof(JournalStateRecord, checksum));
  const auto state = block.subspan(sizeof(JournalStateRecord), stateBytes);
  covered.insert(covered.end(), state.begin(), state.end());
  return crc32(covered);
}

}  // namespace

static_assert(JournalFile::kMaxStateBytes + sizeof(JournalStateRecord) <= kJournalBlockBytes);

Failure JournalFile::create(std::unique_ptr<JournalStorage> storage, std::string_view description,
                            std::span<const u8> attachment, std::span<const u8> state,
                            std::unique_ptr<JournalFile>& journal) {
  if (description.size() > kMaxDescriptionBytes || attachment.size() > kMaxAttachmentBytes)
    return Error::fileTooLarge;
  std::unique_ptr<JournalFile> made(new JournalFile(std::move(storage)));
  try {
    made->description_ = description;
    made->attachment_.assign(attachment.begin(), attachment.end());
  } catch (const std::bad_alloc&) {
    return Error::outOfMemory;
  }
  if (const Failure failed = made->writeHeader()) return failed;
  // Without a state the journal was never begun.
  if (const Failure failed = made->storage_->sync()) return failed;
  if (const Failure failed = made->setState(state)) return failed;
  journal = std::move(made);
  return {};
}

Failure JournalFile::writeHeader() {
  std::vector<u8> text(description_.begin(), description_.end());
  text.insert(text.end(), attachment_.begin(), attachment_.end());
  textChecksum_ = crc32(text);
  JournalHeaderRecord header;
  header.descriptionBytes = static_cast<u32>(description_.size());
  header.attachmentBytes = static_cast<u32>(attachment_.size());
  header.textChecksum = textChecksum_;
  header.checksum = headChecksum(header);
  const u64 textOffset = kJournalTextBlock * kJournalBlockBytes;
  bodyOffset_ = roundUp(textOffset + text.size(), kJournalBlockBytes);
  if (const Failure failed = storage_->write(textOffset, text)) return failed;
  return storage_->write(kJournalHeaderBlock, bytesOf(header));
}

Failure JournalFile::open(std::unique_ptr<JournalStorage> storage,
                          std::unique_ptr<JournalFile>& journal) {
  std::unique_ptr<JournalFile> opened(new JournalFile(std::move(storage)));
  if (const Failure failed = opened->readHeader()) return failed;
  if (const Failure failed = opened->readStates()) return failed;
  if (opened->sequence_ == 0) return Error::notThisFormat;
  journal = std::move(opened);
  return {};
}

Failure JournalFile::readHeader() {
  std::vector<u8> block(sizeof(JournalHeaderRecord));
  if (const Failure failed = storage_->read(kJournalHeaderBlock, block))
    return failed == Error::seekFailed ? Failure(Error::notThisFormat) : failed;
  const auto& header = *recordAt<JournalHeaderRecord>(std::span<const u8>(block));
  if (!hasMagic(header) || header.checksum != headChecksum(header)) return Error::notThisFormat;
  textChecksum_ = header.textChecksum;
  return readText(header.descriptionBytes, header.attachmentBytes);
}

Failure JournalFile::readText(u32 descriptionBytes, u32 attachmentBytes) {
  if (descriptionBytes > kMaxDescriptionBytes || attachmentBytes > kMaxAttachmentBytes)
    return Error::corrupt;
  const u64 textOffset = kJournalTextBlock * kJournalBlockBytes;
  std::vector<u8> text;
  try {
    text.resize(std::size_t{descriptionBytes} + attachmentBytes);
    if (const Failure failed = storage_->read(textOffset, text))
      return failed == Error::seekFailed ? Failure(Error::corrupt) : failed;
    if (crc32(text) != textChecksum_) return Error::corrupt;
    const auto split = text.begin() + static_cast<std::ptrdiff_t>(descriptionBytes);
    description_.assign(text.begin(), split);
    attachment_.assign(split, text.end());
  } catch (const std::bad_alloc&) {
    return Error::outOfMemory;
  }
  bodyOffset_ = roundUp(textOffset + text.size(), kJournalBlockBytes);
  return {};
}

Failure JournalFile::readStates() {
  std::vector<u8> block(kJournalBlockBytes);
  for (u64 slot = 0; slot < kJournalStateBlocks; ++slot) {
    const Failure failed = storage_->read((1 + slot) * kJournalBlockBytes, block);
    if (failed == Error::seekFailed) continue;
    if (failed) return failed;
    takeState(block);
  }
  return {};
}

// The newest that is whole counts.
void JournalFile::takeState(std::span<const u8> block) {
  const auto& record = *recordAt<JournalStateRecord>(block);
  if (!hasMagic(record) || record.textChecksum != textChecksum_) return;
  const u32 bytes = record.stateBytes;
  if (bytes > kMaxStateBytes || record.sequence <= sequence_) return;
  if (record.checksum != stateChecksum(block, bytes)) return;
  const auto state = block.subspan(sizeof(JournalStateRecord), bytes);
  state_.assign(state.begin(), state.end());
  sequence_ = record.sequence;
}

Failure JournalFile::setState(std::span<const u8> state) {
  if (state.size() > kMaxStateBytes) return Error::fileTooLarge;
  if (const Failure failed = writeState(state)) return failed;
  if (const Failure failed = storage_->sync()) return failed;
  state_.assign(state.begin(), state.end());
  ++sequence_;
  return {};
}

Failure JournalFile::writeState(std::span<const u8> state) {
  std::vector<u8> block(kJournalBlockBytes);
  auto& record = *recordAt<JournalStateRecord>(std::span<u8>(block));
  record = {};
  record.stateBytes = static_cast<u32>(state.size());
  record.sequence = sequence_ + 1;
  record.textChecksum = textChecksum_;
  std::copy(state.begin(), state.end(), block.begin() + sizeof(JournalStateRecord));
  record.checksum = stateChecksum(block, record.stateBytes);
  const u64 slot = (sequence_ + 1) % kJournalStateBlocks;
  return storage_->write((1 + slot) * kJournalBlockBytes, block);
}

Failure JournalFile::writeBody(u64 offset, std::span<const u8> bytes) {
  return storage_->write(bodyOffset_ + offset, bytes);
}

Failure JournalFile::readBody(u64 offset, std::span<u8> bytes) {
  return storage_->read(bodyOffset_ + offset, bytes);
}

}  // namespace tallowin
