#include "base/host.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "base/text.h"
#include "base/waiting.h"

namespace tallowin {
namespace {

// A /proc or /sys file is small; a made-up or hostile one must not fill the memory.
constexpr std::size_t kMaxTextBytes = 1 * kMiB;

std::optional<std::string> readText(const std::string& path, std::size_t maxBytes) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return std::nullopt;
  std::string text;
  char piece[4096];
  while (text.size() < maxBytes) {
    const ssize_t got = ::read(descriptor, piece, std::min(sizeof piece, maxBytes - text.size()));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && text.empty()) {
      ::close(descriptor);
      return std::nullopt;
    }
    if (got <= 0) break;
    text.append(piece, static_cast<std::size_t>(got));
  }
  ::close(descriptor);
  return text;
}

NodeInfo infoOf(const struct stat& status) {
  return {S_ISBLK(status.st_mode), major(status.st_rdev), minor(status.st_rdev)};
}

// "a/./b/../c" without its dots; the path is absolute.
std::string normalised(const std::string& path) {
  std::vector<std::string> kept;
  for (std::string& part : split(path, '/')) {
    if (part.empty() || part == ".") continue;
    if (part != "..") {
      kept.push_back(std::move(part));
    } else if (!kept.empty()) {
      kept.pop_back();
    }
  }
  std::string result;
  for (const std::string& part : kept) result += "/" + part;
  return result.empty() ? "/" : result;
}

}  // namespace

int Host::open(const std::string& path, int flags) {
  const std::string whole = real(path);
  return blockingCall([&] { return ::open(whole.c_str(), flags | O_CLOEXEC, 0600); });
}

void Host::close(int descriptor) {
  blockingCall([&] { return ::close(descriptor); });
}

int Host::control(int descriptor, unsigned long request, void* argument) {
  return blockingCall([&] { return ::ioctl(descriptor, request, argument); });
}

i64 Host::readAt(int descriptor, void* buffer, std::size_t bytes, u64 offset) {
  return waitedRead(descriptor, buffer, bytes, offset);
}

void Host::willRead(int descriptor, u64 offset, u64 bytes) {
  static_cast<void>(::posix_fadvise(descriptor, static_cast<off_t>(offset),
                                    static_cast<off_t>(bytes), POSIX_FADV_WILLNEED));
}

i64 Host::writeAt(int descriptor, const void* buffer, std::size_t bytes, u64 offset) {
  return waitedWrite(descriptor, {static_cast<const u8*>(buffer), bytes}, {}, offset);
}

int Host::sync(int descriptor) { return waitedSync(descriptor); }

std::optional<NodeInfo> Host::nodeInfo(const std::string& path) {
  struct stat status {};
  if (::stat(real(path).c_str(), &status) != 0) return std::nullopt;
  return infoOf(status);
}

std::optional<NodeInfo> Host::nodeInfo(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return std::nullopt;
  return infoOf(status);
}

std::vector<std::string> Host::list(const std::string& directory, const std::string& pattern) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> handle(::opendir(real(directory).c_str()), ::closedir);
  if (!handle) return names;
  while (const dirent* entry = ::readdir(handle.get())) {
    if (entry->d_name[0] != '.' && matchesWildcard(pattern, entry->d_name))
      names.emplace_back(entry->d_name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> Host::lines(const std::string& path) {
  // A mount table may be large, and none of it may be missed.
  const std::optional<std::string> text = readText(real(path), std::string::npos);
  if (!text || text->empty()) return {};
  std::vector<std::string> result = split(*text, '\n');
  if (result.back().empty()) result.pop_back();
  return result;
}

std::optional<std::string> Host::content(const std::string& path, std::size_t maxBytes) {
  return readText(real(path), std::min(maxBytes, kMaxTextBytes));
}

std::optional<std::string> Host::firstLine(const std::string& path, std::size_t maxBytes) {
  std::optional<std::string> text = content(path, maxBytes);
  if (text) text->resize(std::min(text->size(), text->find('\n')));
  return text;
}

std::string Host::resolveLink(const std::string& path) {
  char target[4096];
  std::string current = path;
  // As many links as the kernel follows; a loop ends there too.
  for (int depth = 0; depth < 40; ++depth) {
    const ssize_t length = ::readlink(real(current).c_str(), target, sizeof target);
    if (length < 0) return normalised(current);
    const std::string next(target, static_cast<std::size_t>(length));
    const std::string directory = current.substr(0, current.rfind('/') + 1);
    current = normalised(next.starts_with('/') ? next : directory + next);
  }
  return current;
}

std::optional<std::string> Host::absolutePath(const std::string& path) {
  if (path.starts_with('/')) return path;
  const std::unique_ptr<char, decltype(&std::free)> folder(::getcwd(nullptr, 0), std::free);
  if (!folder || *folder != '/') return std::nullopt;
  std::string absolute = std::string(folder.get()) + "/" + path;
  if (absolute.starts_with(rootPrefix_ + "/")) absolute.erase(0, rootPrefix_.size());
  return absolute;
}

bool Host::exists(const std::string& path) { return ::access(real(path).c_str(), F_OK) == 0; }

u64 Host::secondsSinceEpoch() { return static_cast<u64>(std::time(nullptr)); }

u64 Host::monotonicNanoseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<u64>(now.tv_sec) * 1'000'000'000 + static_cast<u64>(now.tv_nsec);
}

void Host::pause(u32 milliseconds) { waitedPause(milliseconds); }

void Host::randomBytes(std::span<u8> out) {
  while (!out.empty()) {
    const ssize_t got = ::getrandom(out.data(), out.size(), 0);
    if (got < 0) continue;
    out = out.subspan(static_cast<std::size_t>(got));
  }
}

u64 Host::number(const std::string& path) {
  const std::optional<std::string> line = firstLine(path);
  if (!line || line->empty()) return kAllOnes64;
  return static_cast<u64>(std::strtoll(line->c_str(), nullptr, 0));
}

}  // namespace tallowin
