// The text of the settings file, edited in place.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tallowin {

// INI text that is edited in place: keys of others, comments, the order of the lines and their
// line ends stay. Section and key names are matched without regard to case.
class SettingsText {
 public:
  SettingsText() = default;
  explicit SettingsText(std::string text) : text_(std::move(text)) {}

  const std::string& text() const { return text_; }
  std::optional<std::string> value(std::string_view section, std::string_view key) const;
  // Creates the section when it is missing.
  void setValue(std::string_view section, std::string_view key, std::string_view value);
  void removeValue(std::string_view section, std::string_view key);

 private:
  std::string text_;
};

}  // namespace tallowin
