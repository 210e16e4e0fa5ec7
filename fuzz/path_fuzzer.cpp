// Paths and patterns from the input, on a sound volume: what a path leads to is where the way that
// it means leads, a pattern finds what it matches, and what was moved is where the path says.
#include "fs/names.h"
#include "volume_input.h"

using namespace tallowin;

namespace {

// The components that are left when "." and ".." are followed.
std::string plain(std::string_view path) {
  std::vector<std::string_view> way;
  for (const std::string_view component : componentsOf(path)) {
    if (component != "..")
      way.push_back(component);
    else if (!way.empty())
      way.pop_back();
  }
  std::string text;
  for (const std::string_view component : way) text += "/" + std::string(component);
  return text.empty() ? "/" : text;
}

void followPath(FileSystem& files, const std::string& path) {
  FileInfo info, same;
  if (files.info(path, info)) return;
  require(!files.info(plain(path), same) && same.id == info.id && same.name == info.name);
  std::vector<FileInfo> entries;
  require(!files.list(path, entries) == info.isDirectory());
  for (const FileInfo& entry : entries) {
    require(!checkName(entry.name, files.rules()));
    require(!files.info(plain(path) + "/" + entry.name, same) && same.id == entry.id);
  }
}

void findPattern(FileSystem& files, const std::string& pattern) {
  std::vector<FileInfo> found;
  if (files.find(pattern, found)) return;
  const std::string_view name = std::string_view(pattern).substr(pattern.find_last_of("/\\") + 1);
  for (const FileInfo& entry : found)
    require(name.empty() || matchesPattern(name, entry.name, files.rules()) ||
            matchesPattern(name, entry.shortName, files.rules()));
}

void change(FileSystem& files, const std::string& from, const std::string& to) {
  if (files.move(from, to)) return;
  // The way that it was named by may have led through what was moved; and its new short name may be
  // the one that it was called by.
  FileInfo moved, old;
  require(!files.info(plain(to), moved));
  require(files.info(plain(from), old) || old.id == moved.id);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  if (size > 2 * kKiB) return 0;
  Input input({data, size});
  MemoryDisk disk = copyOfFat(0);
  std::unique_ptr<FileSystem> files;
  require(!openFatFiles({disk, kBefore, kFatSamples[0].sectors}, kFatSamples[0].type,
                        {.writable = true}, files));
  std::string last = "/a";
  while (!input.isEmpty()) {
    const u32 what = input.number(1) % 4;
    const auto bytes = input.take(input.number(1));
    const std::string path(bytes.begin(), bytes.end());
    const std::optional<std::u16string> units = utf16Of(path);
    require(!units || utf8Of(*units) == path);
    if (what == 0) followPath(*files, path);
    if (what == 1) findPattern(*files, path);
    if (what == 2) change(*files, last, path);
    if (what == 3) last = path;
  }
  return 0;
}
