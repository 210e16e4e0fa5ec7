// Where a journal lies: bytes that can be made durable.
#pragma once

#include <memory>
#include <span>
#include <string>

#include "base/error.h"
#include "base/types.h"

namespace tallowin {

class JournalStorage {
 public:
  virtual ~JournalStorage() = default;
  JournalStorage(const JournalStorage&) = delete;
  JournalStorage& operator=(const JournalStorage&) = delete;

  // seekFailed: it ends before; read.
  virtual Failure read(u64 offset, std::span<u8> bytes) = 0;
  // Grows where it ends before. write, noSpaceLeft.
  virtual Failure write(u64 offset, std::span<const u8> bytes) = 0;
  // Everything written so far outlives a power cut. flush.
  virtual Failure sync() = 0;

 protected:
  JournalStorage() = default;
};

// A file of the host. Another program that has the same one open is kept out by an advisory lock.
class JournalStorageFile : public JournalStorage {
 public:
  // A new file of mode 0600. cannotCreate: also where there is one already.
  static Failure create(const std::string& path, std::unique_ptr<JournalStorage>& storage);
  // cannotOpenForReading; lockNotMade: another program works with it.
  static Failure open(const std::string& path, std::unique_ptr<JournalStorage>& storage);
  // The file is gone for good when this returns. write, flush.
  static Failure remove(const std::string& path);

  ~JournalStorageFile() override;
  Failure read(u64 offset, std::span<u8> bytes) override;
  Failure write(u64 offset, std::span<const u8> bytes) override;
  Failure sync() override;

 private:
  explicit JournalStorageFile(int descriptor) : descriptor_(descriptor) {}

  int descriptor_;  // owned
};

}  // namespace tallowin
