#include "ops/file_chooser.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "base/text.h"
#include "fs/names.h"
#include "ops/error_text.h"

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

// For a comparison without regard to case.
std::u16string foldedOf(const std::string& name) {
  return upperCase(utf16Of(name).value_or(std::u16string(name.begin(), name.end())));
}

bool comesBefore(const FileChooser::Row& a, const FileChooser::Row& b) {
  const auto group = [](const FileChooser::Row& row) {
    return row.name == ".." ? 0 : row.isDirectory ? 1 : 2;
  };
  if (group(a) != group(b)) return group(a) < group(b);
  return foldedOf(a.name) < foldedOf(b.name);
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
    : source_(choice.source != nullptr ? *choice.source : host_),
      flags_(choice.flags),
      isoDates_(isoDates),
      title_(choice.flags & FileChoice::save ? "Save As" : "Open"),
      directory_(source_.startDirectory()),
      patterns_(patternsIn(choice.patterns)) {
  const fs::path start = absolute(choice.startPath);
  if (isDirectory(start)) {
    directory_ = start.string();
  } else if (!choice.startPath.empty()) {
    if (isDirectory(start.parent_path())) directory_ = start.parent_path().string();
    initialName_ = start.filename().string();
  }
  static_cast<void>(readRows(directory_, patterns_, rows_));
}

// Without "." and ".." and without a slash at the end.
std::string FileChooser::absolute(const std::string& name) const {
  const fs::path path = (fs::path(directory_) / name).lexically_normal();
  return path.has_filename() || !path.has_relative_path() ? path.string()
                                                          : path.parent_path().string();
}

bool FileChooser::isDirectory(const std::string& path) {
  PathKind kind = PathKind::nothing;
  return !source_.look(path, kind) && kind == PathKind::directory;
}

Failure FileChooser::readRows(const std::string& directory,
                              const std::vector<std::string>& patterns, std::vector<Row>& rows) {
  rows.clear();
  const Failure failed = source_.list(directory, rows);
  std::erase_if(rows, [&](const Row& row) {
    return !row.isDirectory &&
           std::none_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
             return source_.matches(pattern, row.name);
           });
  });
  if (directory != "/") rows.push_back({"..", true});
  std::sort(rows.begin(), rows.end(), comesBefore);
  return failed;
}

// A directory of a partition that cannot be read is not gone to; that was told.
FileChooser::Outcome FileChooser::goTo(const std::string& directory,
                                       const std::vector<std::string>& patterns) {
  std::vector<Row> rows;
  if (readRows(directory, patterns, rows) == Error::cancelled) return Outcome::nothing;
  directory_ = directory;
  patterns_ = patterns;
  rows_ = std::move(rows);
  return Outcome::listChanged;
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

std::string FileChooser::freeSpaceText() {
  const std::optional<u64> bytes = source_.freeBytes(directory_);
  return bytes ? tallowin::freeSpaceText(*bytes) : "";
}

FileChooser::Outcome FileChooser::enter(const std::string& typed) {
  std::string name = typed;
  std::replace(name.begin(), name.end(), '\\', '/');
  if (name.empty()) return Outcome::nothing;

  const std::string path = absolute(name);
  PathKind kind = PathKind::nothing;
  if (source_.look(path, kind) == Error::cancelled) return Outcome::nothing;
  if (kind == PathKind::directory) return goTo(path, patterns_);
  const std::string last = fs::path(path).filename().string();
  if (last.find_first_of("?*") != std::string::npos) {
    const std::string folder = fs::path(path).parent_path().string();
    return isDirectory(folder) ? goTo(folder, patternsIn(last)) : Outcome::nothing;
  }
  const bool exists = kind == PathKind::file;
  if (!exists && name.find_first_of(kNeverInNames) != std::string::npos) return Outcome::nothing;
  if (!exists && (flags_ & FileChoice::mustExist)) return Outcome::notFound;
  result_ = path;
  return exists && (flags_ & FileChoice::askOverwrite) ? Outcome::askOverwrite : Outcome::chosen;
}

std::string FileChooser::remove(const std::string& name) {
  const Failure failed = source_.remove(absolute(name));
  if (!failed) std::erase_if(rows_, [&](const Row& row) { return row.name == name; });
  return errorText(failed);
}

}  // namespace tallowin
