#include "cli/command_line.h"

#include <CLI/CLI.hpp>

#include <algorithm>

#include "base/text.h"

namespace tallowin {
namespace {

constexpr const char* kVersion = "tallowinctl 1.32\n";

ParsedCommandLine answer(std::string text) {
  ParsedCommandLine parsed;
  parsed.text = std::move(text);
  return parsed;
}

std::string overview() {
  std::string text = "Usage: tallowinctl COMMAND [TARGET] [OPTIONS]\n\nCommands:\n";
  for (const CommandRow* row : commandRows())
    text += format("  %-10s%s\n", std::string(row->name).c_str(), row->summary);
  return text +
         "\n'tallowinctl COMMAND --help' explains a command; --version prints the version.\n";
}

ParsedCommandLine usageError(const std::string& what, const std::string& helpCommand) {
  ParsedCommandLine parsed = answer(what + "; see '" + helpCommand + " --help'.");
  parsed.status = ExitStatus::wrongUsage;
  return parsed;
}

ParsedCommandLine parseCommand(const CommandRow& row, std::vector<std::string> words) {
  ParsedCommandLine parsed;
  parsed.row = &row;
  parsed.command = row.make();
  CLI::App app(row.summary, "tallowinctl " + std::string(row.name));
  app.set_help_flag("--help", "Print this help");
  OptionSet options(app);
  parsed.command->declare(options, parsed.options);
  declareOutput(options, parsed.options);
  try {
    std::reverse(words.begin(), words.end());  // the parser takes them from the back
    app.parse(words);
  } catch (const CLI::CallForHelp&) {
    return answer(app.help());
  } catch (const CLI::ParseError& error) {
    return usageError(error.what(), app.get_name());
  }
  return parsed;
}

}  // namespace

ParsedCommandLine parseCommandLine(const std::vector<std::string>& words) {
  if (words.empty()) return usageError("a command is missing", "tallowinctl");
  if (words[0] == "--version") return answer(kVersion);
  if (words[0] == "--help" || words[0] == "-h") return answer(overview());
  const auto rows = commandRows();
  const auto row = std::ranges::find(rows, words[0], &CommandRow::name);
  if (row == rows.end()) return usageError("there is no command '" + words[0] + "'", "tallowinctl");
  std::vector<std::string> rest(words.begin() + 1, words.end());
  // The window's spelling of the switch, which the parser would take for two letters.
  std::replace(rest.begin(), rest.end(), std::string("-nd"), std::string("--nd"));
  return parseCommand(**row, std::move(rest));
}

}  // namespace tallowin
