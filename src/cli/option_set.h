// The options of one command, as it declares them. The parser behind it stays out of the commands.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace tallowin {

// Good while the set lives that it was declared in.
class DeclaredOption {
 public:
  explicit DeclaredOption(CLI::Option& option) : option_(option) {}

  DeclaredOption& required();
  // Never with the other.
  DeclaredOption& excludes(const DeclaredOption& other);
  // Only with the other.
  DeclaredOption& needs(const DeclaredOption& other);

 private:
  CLI::Option& option_;
};

// What is declared is filled when the command line is parsed, so it has to outlive that.
class OptionSet {
 public:
  explicit OptionSet(CLI::App& app) : app_(app) {}

  // `parse` makes an optional of a text. Without a value the usage is wrong: "'5MB' is not " and
  // what was expected. A name without dashes is an argument's.
  template <typename Value, typename Parse>
  DeclaredOption value(const char* name, const char* valueName, Value& place, Parse parse,
                       const char* expected, const char* help) {
    const auto take = [&place, parse](const std::string& text) {
      auto parsed = parse(text);
      if (parsed) place = *parsed;
      return parsed.has_value();
    };
    return values(name, valueName, Count::one, take, expected, help);
  }
  // The same for an option that may come several times.
  template <typename Value, typename Parse>
  DeclaredOption list(const char* name, const char* valueName, std::vector<Value>& place,
                      Parse parse, const char* expected, const char* help) {
    const auto take = [&place, parse](const std::string& text) {
      auto parsed = parse(text);
      if (parsed) place.push_back(*parsed);
      return parsed.has_value();
    };
    return values(name, valueName, Count::oneOrMore, take, expected, help);
  }
  // A flag that may have a value; `take` gets the value, which is empty without one, and answers
  // whether it is possible.
  DeclaredOption flagOrValue(const char* name, const char* valueName,
                             std::function<bool(const std::string&)> take, const char* expected,
                             const char* help);
  DeclaredOption text(const char* name, const char* valueName, std::string& place,
                      const char* help);
  DeclaredOption text(const char* name, const char* valueName, std::optional<std::string>& place,
                      const char* help);
  DeclaredOption flag(const char* name, bool& place, const char* help);
  // A flag that answers a question with this value; its absence leaves it open.
  DeclaredOption choice(const char* name, std::optional<bool>& place, bool value, const char* help);
  // Looks at everything once it is parsed: what is wrong with it, or nothing.
  void check(std::function<std::string()> fault);

 private:
  enum class Count { noneOrOne, one, oneOrMore };
  DeclaredOption values(const char* name, const char* valueName, Count count,
                        std::function<bool(const std::string&)> take, const char* expected,
                        const char* help);

  CLI::App& app_;
};

}  // namespace tallowin
