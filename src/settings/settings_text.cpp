#include "settings/settings_text.h"

#include <algorithm>

#include "files/ini_text.h"

namespace tallowin {
namespace {

// Inserted lines end as the file's own lines do.
void keepLineEnds(std::string& text, bool onlyLineFeeds) {
  if (onlyLineFeeds) std::erase(text, '\r');
}

bool hasOnlyLineFeeds(const std::string& text) {
  return text.find('\n') != std::string::npos && text.find('\r') == std::string::npos;
}

}  // namespace

std::optional<std::string> SettingsText::value(std::string_view section,
                                               std::string_view key) const {
  const auto found = getValue(text_, section, key);
  return found ? std::optional<std::string>(*found) : std::nullopt;
}

void SettingsText::setValue(std::string_view section, std::string_view key,
                            std::string_view value) {
  // A line end in a value would make lines of their own of what follows.
  const std::string_view line = value.substr(0, value.find_first_of("\r\n"));
  const bool onlyLineFeeds = hasOnlyLineFeeds(text_);
  static_cast<void>(tallowin::setValue(text_, kNoCapacityLimit, line, section, key));
  keepLineEnds(text_, onlyLineFeeds);
}

void SettingsText::removeValue(std::string_view section, std::string_view key) {
  // Every line of the key goes: behind the first, a second one would take effect.
  for (std::size_t before = text_.size() + 1; text_.size() < before && value(section, key);) {
    before = text_.size();
    static_cast<void>(tallowin::setValue(text_, kNoCapacityLimit, std::nullopt, section, key));
  }
}

}  // namespace tallowin
