#include "cli/option_set.h"

#include <CLI/CLI.hpp>

namespace tallowin {
namespace {

// How often an option with several values may come.
constexpr int kMostValues = 64;

}  // namespace

DeclaredOption& DeclaredOption::required() {
  option_.required();
  return *this;
}

DeclaredOption& DeclaredOption::excludes(const DeclaredOption& other) {
  option_.excludes(&other.option_);
  return *this;
}

DeclaredOption& DeclaredOption::needs(const DeclaredOption& other) {
  option_.needs(&other.option_);
  return *this;
}

DeclaredOption OptionSet::values(const char* name, const char* valueName, Count count,
                                 std::function<bool(const std::string&)> take, const char* expected,
                                 const char* help) {
  const auto takeAll = [take = std::move(take), expected](const CLI::results_t& texts) {
    for (const std::string& text : texts)
      if (!take(text)) throw CLI::ValidationError("'" + text + "' is not " + expected);
    return true;
  };
  CLI::Option* option = app_.add_option(name, takeAll, help)->type_name(valueName);
  if (count == Count::noneOrOne) option->expected(0, 1);
  if (count == Count::oneOrMore) option->expected(1, kMostValues)->allow_extra_args(false);
  return DeclaredOption(*option);
}

DeclaredOption OptionSet::flagOrValue(const char* name, const char* valueName,
                                      std::function<bool(const std::string&)> take,
                                      const char* expected, const char* help) {
  return values(name, valueName, Count::noneOrOne, std::move(take), expected, help);
}

DeclaredOption OptionSet::text(const char* name, const char* valueName, std::string& place,
                               const char* help) {
  return DeclaredOption(*app_.add_option(name, place, help)->type_name(valueName));
}

DeclaredOption OptionSet::text(const char* name, const char* valueName,
                               std::optional<std::string>& place, const char* help) {
  return DeclaredOption(*app_.add_option(name, place, help)->type_name(valueName));
}

DeclaredOption OptionSet::flag(const char* name, bool& place, const char* help) {
  return DeclaredOption(*app_.add_flag(name, place, help));
}

DeclaredOption OptionSet::choice(const char* name, std::optional<bool>& place, bool value,
                                 const char* help) {
  return DeclaredOption(*app_.add_flag_callback(
      name, [&place, value] { place = value; }, help));
}

void OptionSet::check(std::function<std::string()> fault) {
  app_.final_callback([fault = std::move(fault)] {
    const std::string text = fault();
    if (!text.empty()) throw CLI::ValidationError(text);
  });
}

}  // namespace tallowin
