// A machine made up for a test: a tree of files, block nodes, ioctl answers, clock and random.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/host.h"
#include "support/temp_folder.h"

namespace tallowin {

class FakeHost : private TempFolder, public Host {
 public:
  // Answers one ioctl: 0, or -1 with errno set.
  using Answer = std::function<int(void* argument)>;

  FakeHost();

  // Files of the made-up tree; paths as the program names them ("/sys/block/sda/size").
  void file(const std::string& path, const std::string& content);
  void folder(const std::string& path);
  void link(const std::string& path, const std::string& target);
  void remove(const std::string& path);
  // The real path of a made-up one.
  std::string realPath(const std::string& path) const { return real(path); }

  // A block node backed by a sparse file of `bytes`.
  void node(const std::string& path, u32 major, u32 minor, u64 bytes = 0);
  // /sys/block/DISK/PART with its number, start and size in 512-byte sectors, and its node.
  void partition(const std::string& disk, const std::string& name, u32 number, u64 start, u64 size);

  // Opens fail with this errno; `exclusively` only those with O_EXCL.
  void refuse(const std::string& path, int errorNumber) { refused_[path] = errorNumber; }
  void holdExclusively(const std::string& path) { held_.insert(path); }
  // Requests without an answer fail with ENOTTY.
  void answer(const std::string& path, unsigned long request, Answer answer) {
    answers_[{path, request}] = std::move(answer);
  }
  // Called before each transfer with (isWrite, bytes, offset): the bytes that may move, -1 for
  // EIO, or the bytes asked for.
  std::function<i64(bool isWrite, std::size_t bytes, u64 offset)> onTransfer;

  // What was opened, in order.
  const std::vector<std::string>& opened() const { return opened_; }
  std::size_t openCount() const { return descriptors_.size(); }
  u64 pausedMilliseconds() const { return paused_; }
  u64 seconds = 1'700'000'000;

  int open(const std::string& path, int flags) override;
  void close(int descriptor) override;
  int control(int descriptor, unsigned long request, void* argument) override;
  i64 readAt(int descriptor, void* buffer, std::size_t bytes, u64 offset) override;
  i64 writeAt(int descriptor, const void* buffer, std::size_t bytes, u64 offset) override;
  std::optional<NodeInfo> nodeInfo(const std::string& path) override;
  std::optional<NodeInfo> nodeInfo(int descriptor) override;
  u64 secondsSinceEpoch() override { return seconds; }
  void pause(u32 milliseconds) override { paused_ += milliseconds; }
  // 1, 2, 3, ... over all calls.
  void randomBytes(std::span<u8> out) override;

 private:
  std::map<std::string, NodeInfo> nodes_;
  std::map<std::string, int> refused_;
  std::set<std::string> held_;
  std::map<std::pair<std::string, unsigned long>, Answer> answers_;
  std::map<int, std::string> descriptors_;
  std::vector<std::string> opened_;
  u64 paused_ = 0;
  u8 lastRandom_ = 0;
};

}  // namespace tallowin
