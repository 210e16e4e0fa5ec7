// A settings file from the input: what the options became is written into it, and read again. What
// belongs to others stays.
#include <cstdlib>
#include <string>

#include "settings/drive_settings.h"
#include "settings/options.h"
#include "settings/settings_file.h"
#include "settings/settings_text.h"

using namespace tallowin;

namespace {

constexpr std::string_view kTheirSection = "Theirs";
constexpr std::string_view kTheirKey = "NobodysKey";

void require(bool holds) {
  if (!holds) std::abort();
}

template <typename Owner>
void roundTrip(std::span<const OptionRow<Owner>> rows, std::string_view section,
               SettingsText text) {
  Owner read;
  readOptionSection(rows, text, section, read);
  const auto theirs = text.value(section, kTheirKey);
  const auto theirSection = text.value(kTheirSection, kTheirKey);

  writeOptionSection(rows, read, section, text);
  const std::string once = text.text();
  Owner again;
  readOptionSection(rows, text, section, again);
  require(read == again);
  require(text.value(section, kTheirKey) == theirs);
  require(text.value(kTheirSection, kTheirKey) == theirSection);
  writeOptionSection(rows, read, section, text);
  require(text.text() == once);

  // Back to the defaults: no row of ours has a value, but a password that is not ours.
  writeOptionSection(rows, Owner{}, section, text);
  Owner defaults;
  readOptionSection(rows, text, section, defaults);
  require(defaults == Owner{});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  if (size > 4 * kKiB) return 0;
  const SettingsText text(std::string(data, data + size));
  roundTrip(optionTable(), kOptionsSection, text);
  roundTrip(driveOptionTable(), "HD12", text);
  return 0;
}
