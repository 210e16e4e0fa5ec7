// The machine that the program runs on: device nodes, /sys, /proc, clock and random bytes.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/types.h"

namespace tallowin {

struct NodeInfo {
  bool isBlockDevice = false;
  u32 major = 0;  // of the device that the node stands for
  u32 minor = 0;
};

// Everything that discovery, firmware geometry and mount checks ask of the machine goes through
// this object. All paths are the machine's own ("/dev/sda", "/sys/block/sda/size"); the root
// prefix is put before them, so that tests run on a made-up tree. What a plain tree cannot hold
// (block nodes, ioctl answers, the clock) is virtual and made up by a derived class.
class Host {
 public:
  explicit Host(std::string rootPrefix = {}) : rootPrefix_(std::move(rootPrefix)) {}
  virtual ~Host() = default;
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // A descriptor, or -1 with errno set. `flags` are the open(2) flags.
  virtual int open(const std::string& path, int flags);
  virtual void close(int descriptor);
  // ioctl(2): -1 with errno set on failure. The argument is what the request takes. This and all
  // other calls on descriptors are waited for as base/waiting.h says.
  virtual int control(int descriptor, unsigned long request, void* argument);
  // pread(2) and pwrite(2): the bytes moved, or -1 with errno set.
  virtual i64 readAt(int descriptor, void* buffer, std::size_t bytes, u64 offset);
  // That is read soon, through the page cache.
  virtual void willRead(int descriptor, u64 offset, u64 bytes);
  virtual i64 writeAt(int descriptor, const void* buffer, std::size_t bytes, u64 offset);
  // fsync(2): 0, or -1 with errno set.
  virtual int sync(int descriptor);
  // Follows symbolic links; nothing when the path does not exist.
  virtual std::optional<NodeInfo> nodeInfo(const std::string& path);
  // Of what is open, whatever its path names by now.
  virtual std::optional<NodeInfo> nodeInfo(int descriptor);

  // Names (not paths) in `directory` that match `pattern` (`?`, `*`), in byte order. Entries
  // starting with "." are left out. Empty when the directory cannot be read.
  virtual std::vector<std::string> list(const std::string& directory, const std::string& pattern);
  // All lines without their line ends; empty when the file cannot be read.
  virtual std::vector<std::string> lines(const std::string& path);
  // At most `maxBytes` as they are; nothing when the file cannot be read.
  virtual std::optional<std::string> content(const std::string& path, std::size_t maxBytes);
  // The first line, at most `maxBytes` of it; nothing when the file cannot be read.
  virtual std::optional<std::string> firstLine(const std::string& path, std::size_t maxBytes = 63);
  // The target of a symbolic link resolved against its directory and normalised; the path
  // itself when it is no link.
  virtual std::string resolveLink(const std::string& path);
  virtual bool exists(const std::string& path);
  // The path from the root on. Nothing when it is relative and the working directory is gone.
  virtual std::optional<std::string> absolutePath(const std::string& path);

  virtual u64 secondsSinceEpoch();
  virtual u64 monotonicNanoseconds();
  // Waits; for conditions of other programs that pass by themselves.
  virtual void pause(u32 milliseconds);
  virtual void randomBytes(std::span<u8> out);

  // A numeric attribute: the first line as a signed 64-bit number, base auto-detected.
  // All ones when it cannot be read, which callers treat as "not available".
  u64 number(const std::string& path);

  const std::string& rootPrefix() const { return rootPrefix_; }

 protected:
  std::string real(const std::string& path) const { return rootPrefix_ + path; }

 private:
  std::string rootPrefix_;
};

}  // namespace tallowin
