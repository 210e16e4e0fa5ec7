#include "support/fake_host.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

namespace tallowin {

namespace fs = std::filesystem;

FakeHost::FakeHost() : Host(TempFolder::path() + "/root") { fs::create_directories(real("/dev")); }

void FakeHost::file(const std::string& path, const std::string& content) {
  TempFolder::write("root" + path, content);
}

void FakeHost::folder(const std::string& path) { fs::create_directories(real(path)); }

void FakeHost::link(const std::string& path, const std::string& target) {
  fs::create_directories(fs::path(real(path)).parent_path());
  fs::create_symlink(target, real(path));
}

void FakeHost::remove(const std::string& path) {
  fs::remove_all(real(path));
  nodes_.erase(path);
}

void FakeHost::node(const std::string& path, u32 major, u32 minor, u64 bytes) {
  TempFolder::sparse("root" + path, bytes);
  nodes_[path] = {true, major, minor};
}

void FakeHost::partition(const std::string& disk, const std::string& name, u32 number, u64 start,
                         u64 size) {
  const std::string folder = "/sys/block/" + disk + "/" + name;
  file(folder + "/partition", std::to_string(number) + "\n");
  file(folder + "/start", std::to_string(start) + "\n");
  file(folder + "/size", std::to_string(size) + "\n");
  std::string path = "/dev/" + name;
  std::replace(path.begin(), path.end(), '!', '/');
  node(path, 8, 100 + number);
}

int FakeHost::open(const std::string& path, int flags) {
  const std::string target = resolveLink(path);
  opened_.push_back(path);
  if (const auto found = refused_.find(target); found != refused_.end()) {
    errno = found->second;
    return -1;
  }
  if ((flags & O_EXCL) != 0 && held_.contains(target)) {
    errno = EBUSY;
    return -1;
  }
  const int descriptor = Host::open(target, flags & ~O_EXCL);
  if (descriptor >= 0) descriptors_[descriptor] = target;
  return descriptor;
}

void FakeHost::close(int descriptor) {
  descriptors_.erase(descriptor);
  Host::close(descriptor);
}

int FakeHost::control(int descriptor, unsigned long request, void* argument) {
  const auto found = answers_.find({descriptors_[descriptor], request});
  if (found != answers_.end()) return found->second(argument);
  errno = ENOTTY;
  return -1;
}

i64 FakeHost::readAt(int descriptor, void* buffer, std::size_t bytes, u64 offset) {
  const i64 allowed = onTransfer ? onTransfer(false, bytes, offset) : static_cast<i64>(bytes);
  errno = EIO;
  return allowed < 0 ? -1
                     : Host::readAt(descriptor, buffer, static_cast<std::size_t>(allowed), offset);
}

i64 FakeHost::writeAt(int descriptor, const void* buffer, std::size_t bytes, u64 offset) {
  const i64 allowed = onTransfer ? onTransfer(true, bytes, offset) : static_cast<i64>(bytes);
  errno = EIO;
  return allowed < 0 ? -1
                     : Host::writeAt(descriptor, buffer, static_cast<std::size_t>(allowed), offset);
}

std::optional<NodeInfo> FakeHost::nodeInfo(const std::string& path) {
  const auto found = nodes_.find(resolveLink(path));
  if (found != nodes_.end()) return found->second;
  return exists(path) ? std::optional(NodeInfo{}) : std::nullopt;
}

std::optional<NodeInfo> FakeHost::nodeInfo(int descriptor) {
  return nodeInfo(descriptors_[descriptor]);
}

void FakeHost::randomBytes(std::span<u8> out) {
  for (u8& byte : out) byte = ++lastRandom_;
}

}  // namespace tallowin
