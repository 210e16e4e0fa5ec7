#include "ui/views/file_chooser.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>

#include "base/text.h"

namespace tallowin {
namespace {

namespace fs = std::filesystem;

constexpr const char* kNeverInNames = "\r\n\t<>?*|";

std::string withCommas(u64 number) {
  std::string text = std::to_string(number);
  for (std::ptrdiff_t at = std::ssize(text) - 3; at > 0; at -= 3)
    text.insert(static_cast<std::size_t>(at), ",");
  return text;
}

// At most two decimals, rounded, without trailing zeros and a bare point.
std::string withDecimals(double number) {
  const u64 hundredths = static_cast<u64>(std::llround(number * 100));
  std::string text = withCommas(hundredths / 100);
  if (hundredths % 100 != 0) text += format(".%02u", static_cast<unsigned>(hundredths % 100));
  if (text.find('.') != std::string::npos && text.back() == '0') text.pop_back();
  return text;
}

// The largest power of 1024 not above the number, at most 1024^6.
u32 powerOf1024(u64 number) {
  u32 power = 0;
  while (power < 6 && number >> (10 * (power + 1)) != 0) ++power;
  return power;
}

std::string scaled(u64 bytes, u32 power) {
  return withDecimals(std::ldexp(static_cast<double>(bytes), -static_cast<int>(10 * power)));
}

std::time_t modificationTime(const fs::directory_entry& entry) {
  std::error_code error;
  const auto time = entry.last_write_time(error);
  if (error) return 0;
  return std::chrono::system_clock::to_time_t(
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(
          std::chrono::file_clock::to_sys(time)));
}

std::string joined(const std::vector<std::string>& parts, char separator) {
  std::string text;
  for (const std::string& part : parts) {
    if (!text.empty()) text += separator;
    text += part;
  }
  return text;
}

std::vector<std::string> patternsIn(const std::string& text) {
  std::vector<std::string> patterns;
  for (const std::string& part : split(text, ';'))
    if (!trim(part).empty()) patterns.emplace_back(trim(part));
  return patterns;
}

bool comesBefore(const FileChooser::Row& a, const FileChooser::Row& b) {
  const auto group = [](const FileChooser::Row& row) {
    return row.name == ".." ? 0 : row.isDirectory ? 1 : 2;
  };
  if (group(a) != group(b)) return group(a) < group(b);
  return std::lexicographical_compare(
      a.name.begin(), a.name.end(), b.name.begin(), b.name.end(),
      [](char left, char right) { return lowerAscii(left) < lowerAscii(right); });
}

}  // namespace

std::string fileSizeText(u64 bytes) {
  constexpr const char* kSuffixes[] = {"", "", "MB", "GB", "TB", "PB", "EB"};
  const u32 power = powerOf1024(bytes);
  if (power < 2) return withCommas(bytes) + "  ";
  return scaled(bytes, power) + kSuffixes[power];
}

std::string freeSpaceText(u64 bytes) {
  constexpr const char* kSuffixes[] = {"", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  const u32 power = powerOf1024(bytes);
  return scaled(bytes, power) + kSuffixes[power] + " Free";
}

std::string fileDateText(std::time_t time, bool iso) {
  std::tm parts{};
  localtime_r(&time, &parts);
  const auto part = [](int value) { return static_cast<unsigned>(value); };
  const unsigned year = part(parts.tm_year + 1900);
  const unsigned month = part(parts.tm_mon + 1);
  const unsigned hour = part(parts.tm_hour);
  if (iso)
    return format("%04u-%02u-%02u %02u:%02u", year, month, part(parts.tm_mday), hour,
                  part(parts.tm_min));
  return format("%2u/%02u/%04u %2u:%02u %cm", month, part(parts.tm_mday), year,
                hour % 12 == 0 ? 12 : hour % 12, part(parts.tm_min), hour < 12 ? 'a' : 'p');
}

FileChooser::FileChooser(const FileChoice& choice, bool isoDates)
    : flags_(choice.flags),
      isoDates_(isoDates),
      title_(choice.flags & FileChoice::save ? "Save As" : "Open"),
      patterns_(patternsIn(choice.patterns)) {
  std::error_code error;
  directory_ = fs::current_path(error).string();
  if (error) directory_ = "/";
  const fs::path start = absolute(choice.startPath);
  if (fs::is_directory(start, error)) {
    directory_ = start.string();
  } else if (!choice.startPath.empty()) {
    if (fs::is_directory(start.parent_path(), error)) directory_ = start.parent_path().string();
    initialName_ = start.filename().string();
  }
  refresh();
}

// Without "." and ".." and without a slash at the end.
std::string FileChooser::absolute(const std::string& name) const {
  const fs::path path = (fs::path(directory_) / name).lexically_normal();
  return path.has_filename() || !path.has_relative_path() ? path.string()
                                                          : path.parent_path().string();
}

void FileChooser::refresh() {
  rows_.clear();
  if (directory_ != "/") rows_.push_back({"..", true});
  std::error_code error;
  for (fs::directory_iterator entry(directory_, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code ignored;
    Row row{entry->path().filename().string(), entry->is_directory(ignored)};
    const bool wanted = row.isDirectory ||
                        std::any_of(patterns_.begin(), patterns_.end(), [&](const auto& pattern) {
                          return matchesWildcard(pattern, row.name);
                        });
    if (!wanted) continue;
    if (!row.isDirectory && entry->is_regular_file(ignored))
      row.sizeBytes = entry->file_size(ignored);
    row.modified = modificationTime(*entry);
    rows_.push_back(std::move(row));
  }
  std::sort(rows_.begin(), rows_.end(), comesBefore);
}

std::string FileChooser::sizeText(const Row& row) const {
  return row.isDirectory ? "<DIR>" : fileSizeText(row.sizeBytes);
}

std::string FileChooser::dateText(const Row& row) const {
  return row.modified == 0 ? "" : fileDateText(row.modified, isoDates_);
}

std::string FileChooser::locationText() const {
  return directory_ + (directory_ == "/" ? "" : "/") + joined(patterns_, ';');
}

std::string FileChooser::freeSpaceText() const {
  std::error_code error;
  const fs::space_info space = fs::space(directory_, error);
  return error ? "" : tallowin::freeSpaceText(space.available);
}

FileChooser::Outcome FileChooser::enter(const std::string& typed) {
  std::string name = typed;
  std::replace(name.begin(), name.end(), '\\', '/');
  if (name.empty()) return Outcome::nothing;

  std::error_code error;
  const std::string path = absolute(name);
  if (fs::is_directory(path, error)) {
    directory_ = path;
    refresh();
    return Outcome::listChanged;
  }
  const std::string last = fs::path(path).filename().string();
  if (last.find_first_of("?*") != std::string::npos) {
    const std::string folder = fs::path(path).parent_path().string();
    if (!fs::is_directory(folder, error)) return Outcome::nothing;
    directory_ = folder;
    patterns_ = patternsIn(last);
    refresh();
    return Outcome::listChanged;
  }
  const bool exists = fs::exists(path, error);
  if (!exists && name.find_first_of(kNeverInNames) != std::string::npos) return Outcome::nothing;
  if (!exists && (flags_ & FileChoice::mustExist)) return Outcome::notFound;
  result_ = path;
  return exists && (flags_ & FileChoice::askOverwrite) ? Outcome::askOverwrite : Outcome::chosen;
}

std::string FileChooser::remove(const std::string& name) {
  std::error_code error;
  fs::remove(absolute(name), error);
  if (error) return error.message();
  std::erase_if(rows_, [&](const Row& row) { return row.name == name; });
  return {};
}

}  // namespace tallowin
