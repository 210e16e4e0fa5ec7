#include "files/path_text.h"

namespace tallowin {
namespace {

constexpr std::string_view kSeparators = "/\\";

}  // namespace

std::optional<std::string_view> fileNamePart(std::string_view path) {
  if (endsWithSeparator(path)) return std::nullopt;
  return path.substr(path.find_last_of(kSeparators) + 1);  // npos + 1 is 0
}

std::vector<std::string_view> splitPath(std::string_view path) {
  std::vector<std::string_view> components;
  while (!path.empty()) {
    const std::size_t end = path.find_first_of(kSeparators);
    if (end != 0) components.push_back(path.substr(0, end));
    path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
  }
  return components;
}

bool appendPath(std::string& path, std::string_view component, std::size_t maxLength) {
  const std::size_t separator = path.empty() || endsWithSeparator(path) ? 0 : 1;
  if (path.size() + separator > maxLength || component.size() > maxLength - path.size() - separator)
    return false;
  if (separator != 0) path += '/';
  path += component;
  return true;
}

void stripLastComponent(std::string& path) {
  const std::size_t separator = path.find_last_of(kSeparators);
  if (separator == std::string::npos) {
    path.clear();
  } else {
    path.resize(separator == 0 ? 1 : separator);
  }
}

bool endsWithSeparator(std::string_view path) {
  return path.empty() || kSeparators.find(path.back()) != std::string_view::npos;
}

}  // namespace tallowin
