#include "cli/arguments.h"

#include <CLI/CLI.hpp>

#include "base/text.h"
#include "ops/mbr_edit_flow.h"

namespace tallowin {
namespace {

constexpr const char* kVersion = "tallowinctl 1.32\n";

struct TypeWord {
  std::string_view word;
  u32 type;
};
constexpr TypeWord kTypeWords[] = {{"fat12", 0x01},    {"fat16", 0x06}, {"fat32", 0x0B},
                                   {"ntfs", 0x07},     {"linux", 0x83}, {"swap", 0x82},
                                   {"extended", 0x05}, {"efi", 0xEF}};
constexpr u32 kLargestClusterBytes = 64 * 1024;

// Reads the text of an option into `place`; the option's error names the text and `expected`.
template <typename Value, typename Parse>
CLI::callback_t into(Value& place, Parse parse, const char* expected) {
  return [&place, parse, expected](const CLI::results_t& texts) {
    auto value = parse(texts[0]);
    if (!value) throw CLI::ValidationError("'" + texts[0] + "' is not " + expected);
    place = *value;
    return true;
  };
}

template <typename Value, typename Parse>
CLI::Option* option(CLI::App& app, const char* name, const char* valueName, Value& place,
                    Parse parse, const char* expected, const char* help) {
  return app.add_option(name, into(place, parse, expected), help)->type_name(valueName);
}

constexpr const char* kAmountForm =
    "a size: a number with B, s (sectors), KiB, MiB, GiB or TiB; alone it is MiB";

constexpr const char* kTypeForm =
    "a type: a number, or fat12, fat16, fat32, ntfs, linux, swap, extended, efi";

std::optional<u32> parseCount(std::string_view text) {
  u64 value = 0;
  if (!parseNumber(text, value) || value > kAllOnes32) return std::nullopt;
  return static_cast<u32>(value);
}

std::optional<u32> parseFromOne(std::string_view text) {
  const std::optional<u32> value = parseCount(text);
  return value && *value > 0 ? value : std::nullopt;
}

std::optional<u32> parseSlot(std::string_view text) {
  const std::optional<u32> value = parseFromOne(text);
  return value && *value <= kMbrSlots ? value : std::nullopt;
}

std::optional<BootCode> parseBootCode(std::string_view text) {
  if (text == "standard") return BootCode::standard;
  if (text == "new") return BootCode::measuring;
  return std::nullopt;
}

std::optional<Scheme> parseScheme(std::string_view text) {
  if (text == "mbr") return Scheme::mbr;
  if (text == "gpt") return Scheme::gpt;
  if (text == "embr") return Scheme::embr;
  return std::nullopt;
}

std::optional<TableAction> parseTableAction(std::string_view text) {
  if (text == "backup") return TableAction::backup;
  if (text == "restore") return TableAction::restore;
  if (text == "repair") return TableAction::repair;
  return std::nullopt;
}

std::optional<FormatKind> parseFormatKind(std::string_view text) {
  if (equalsIgnoreCase(text, "fat12")) return FormatKind::fat12;
  if (equalsIgnoreCase(text, "fat16")) return FormatKind::fat16;
  if (equalsIgnoreCase(text, "fat32")) return FormatKind::fat32;
  return std::nullopt;
}

std::optional<u32> parseCluster(std::string_view text) {
  const std::optional<Amount> amount = parseAmount(text);
  if (!amount || amount->unit != Amount::Unit::bytes) return std::nullopt;
  const u64 bytes = amount->number;
  const bool powerOfTwo = bytes != 0 && (bytes & (bytes - 1)) == 0;
  if (!powerOfTwo || bytes < 512 || bytes > kLargestClusterBytes) return std::nullopt;
  return static_cast<u32>(bytes);
}

void addTarget(CLI::App& app, Arguments& arguments) {
  app.add_option("TARGET", arguments.target, "Block device or image file (raw, VHD, VMDK)")
      ->required();
}

void addPart(CLI::App& app, Arguments& arguments) {
  option(app, "--part", "N", arguments.part, parseCount, "a partition's number",
         "Partition: its number in the list (the kernel's, or the id on an EMBR disk)")
      ->required();
}

void addWriting(CLI::App& app, Arguments& arguments) {
  app.add_flag("--yes", arguments.yes, "Answer the confirmations");
  app.add_flag("--rehearse", arguments.rehearse,
               "Do it on a copy-on-write overlay, say what would be written, change nothing");
}

void addCluster(CLI::App& app, Arguments& arguments) {
  option(app, "--cluster", "SIZE", arguments.clusterBytes, parseCluster,
         "a cluster size: 512B, 1KiB, 2KiB ... 64KiB", "Cluster size; by default automatic");
}

void declareCreate(CLI::App& app, Arguments& arguments) {
  addTarget(app, arguments);
  option(app, "--size", "SIZE", arguments.size, parseAmount, kAmountForm,
         "Size, rounded up to whole MiB")
      ->required();
  option(app, "--type", "TYPE", arguments.type, parseType, kTypeForm,
         "Number, or fat12 fat16 fat32 ntfs linux swap extended efi")
      ->required();
  app.add_option("--name", arguments.name, "Name")->type_name("NAME");
  option(app, "--free", "K", arguments.freeBlock, parseFromOne, "a free block's number, from 1",
         "The K-th free block of the list; by default the largest");
  CLI::Option* before = option(app, "--before", "SIZE", arguments.before, parseAmount, kAmountForm,
                               "Free space to leave before it");
  option(app, "--after", "SIZE", arguments.after, parseAmount, kAmountForm,
         "Free space to leave after it; 0 places it at the block's end")
      ->excludes(before);
  CLI::Option* format = app.add_flag("--format", arguments.format, "Format it");
  addCluster(app, arguments);
  app.get_option("--cluster")->needs(format);
  addWriting(app, arguments);
}

void declareDelete(CLI::App& app, Arguments& arguments) {
  addTarget(app, arguments);
  addPart(app, arguments);
  app.add_flag("--clear-boot", arguments.clearBootSector, "Clear its boot sectors");
  CLI::Option* wipe =
      app.add_option(
             "--wipe",
             [&arguments](const CLI::results_t& patterns) {
               if (!patterns.empty() && !patterns[0].empty() && patterns[0] != "zero")
                 throw CLI::ValidationError("'" + patterns[0] + "' is not a pattern: zero");
               return arguments.wipe = true;
             },
             "Overwrite all of it; PATTERN: zero")
          ->type_name("[PATTERN]")
          ->expected(0, 1);
  app.add_flag("--ignore-errors", arguments.ignoreErrors,
               "Pass over sectors that cannot be overwritten; --yes does not answer that")
      ->needs(wipe);
  addWriting(app, arguments);
}

void declareFormat(CLI::App& app, Arguments& arguments) {
  addTarget(app, arguments);
  addPart(app, arguments);
  option(app, "--fs", "KIND", arguments.fileSystem, parseFormatKind,
         "a file system: fat12, fat16, fat32",
         "fat12, fat16 or fat32; the type is changed when it does not fit");
  addCluster(app, arguments);
  app.add_option("--label", arguments.label, "Volume label; by default the partition's name")
      ->type_name("LABEL");
  app.add_flag("--scan", arguments.scan, "Look for unreadable clusters");
  app.add_flag("--align-ntfs", arguments.alignNtfs, "Place clusters for a conversion to NTFS");
  addWriting(app, arguments);
}

void declareSet(CLI::App& app, Arguments& arguments) {
  SetArguments& set = arguments.set;
  addTarget(app, arguments);
  addPart(app, arguments);
  app.add_option("--name", arguments.name, "Name; entries of an MBR have none")->type_name("NAME");
  option(app, "--type", "TYPE", set.type, parseType, kTypeForm,
         "Number, or fat12 fat16 fat32 ntfs linux swap efi");
  option(app, "--type-guid", "GUID", set.typeGuid, parseTypeGuid,
         "a GUID or the name of a type, as \"Linux Data\"",
         "GPT: type GUID, or the name of the type");
  const auto flag = [&app](const char* name, std::optional<bool>& place, bool value,
                           const char* help) {
    return app.add_flag_callback(
        name, [&place, value] { place = value; }, help);
  };
  CLI::Option* active = flag("--active", set.active, true, "Make it the only active one");
  flag("--inactive", set.active, false, "Take its active mark")->excludes(active);
  CLI::Option* hide = flag("--hide", set.hide, true, "Hide it: by its type, on a GPT by a flag");
  flag("--unhide", set.hide, false, "Show it again")->excludes(hide);
  app.add_option(
         "--flag",
         [&set](const CLI::results_t& texts) {
           for (const std::string& text : texts) {
             const std::optional<FlagChange> change = parseFlagChange(text);
             if (!change) throw CLI::ValidationError("'" + text + "' is not FLAG=0 or FLAG=1");
             set.flags.push_back(*change);
           }
           return true;
         },
         "GPT: 0 to 63, required no-block-io legacy-boot read-only shadow-copy hidden no-mount; "
         "EMBR: boot manager bootable multi-os hd0-only; may be repeated")
      ->type_name("FLAG=0/1")
      ->expected(1, 64)
      ->allow_extra_args(false);
  addWriting(app, arguments);
}

void declareMbr(CLI::App& app, Arguments& arguments) {
  constexpr const char* kSlotForm = "a slot: 1 to 4";
  MbrArguments& mbr = arguments.mbr;
  addTarget(app, arguments);
  option(app, "--set-active", "SLOT", mbr.setActive, parseSlot, kSlotForm,
         "Make this slot, 1 to 4, the only active one");
  option(app, "--boot-code", "CODE", mbr.bootCode, parseBootCode, "a boot code: standard, new",
         "Install boot code: standard, or new (measures into a TPM)");
  CLI::Option* insert = option(app, "--insert", "N", mbr.insert, parseCount, "a partition's number",
                               "Put partition N into the slot of --slot");
  CLI::Option* slot = option(app, "--slot", "SLOT", mbr.slot, parseSlot, kSlotForm,
                             "The slot, 1 to 4, that --insert fills");
  insert->needs(slot);
  slot->needs(insert);
  option(app, "--delete-slot", "SLOT", mbr.deleteSlot, parseSlot, kSlotForm,
         "Clear this slot, 1 to 4");
  app.add_flag("--fill-echs", mbr.fillEndChs,
               "Make the last CHS address of every used slot the largest");
  CLI::Option* clear =
      app.add_flag("--clear-signature", mbr.clearSignature, "Clear the disk signature");
  option(app, "--signature", "NUMBER", mbr.signature, parseSignature, "a number of 32 bits",
         "Set the disk signature: decimal, 0x hexadecimal or 0 octal")
      ->excludes(clear);
  addWriting(app, arguments);
}

void declareConvert(CLI::App& app, Arguments& arguments) {
  addTarget(app, arguments);
  option(app, "--to", "KIND", arguments.convertTo, parseScheme, "a kind of table: mbr, gpt, embr",
         "The kind of partition table to change to: mbr, gpt or embr")
      ->required();
  app.add_flag("--overwrite", arguments.overwrite,
               "Give up a boot loader that lies where the new table goes");
  addWriting(app, arguments);
}

void declareTable(CLI::App& app, Arguments& arguments) {
  app.add_option(
         "ACTION",
         [&arguments](const CLI::results_t& texts) {
           const std::optional<TableAction> action = parseTableAction(texts[0]);
           if (!action)
             throw CLI::ValidationError("'" + texts[0] + "' is not backup, restore or repair");
           arguments.tableAction = *action;
           return true;
         },
         "backup: keep the partition table in FILE; restore: put it back; repair: make both "
         "copies of a GPT sound")
      ->required();
  addTarget(app, arguments);
  app.add_option("FILE", arguments.file, "The file that holds the table; none for repair");
  addWriting(app, arguments);
  app.final_callback([&arguments] {
    const bool takesFile = arguments.tableAction != TableAction::repair;
    if (takesFile && arguments.file.empty()) throw CLI::RequiredError("FILE");
    if (!takesFile && !arguments.file.empty()) throw CLI::ValidationError("repair takes no FILE");
  });
}

void declareInfo(CLI::App& app, Arguments& arguments) {
  addTarget(app, arguments);
  addPart(app, arguments);
}

void declareSettings(CLI::App& app, Arguments& arguments) {
  app.add_option(
         "KEY",
         [&arguments](const CLI::results_t& texts) {
           const std::size_t equals = texts[0].find('=');
           arguments.key = texts[0].substr(0, equals);
           if (equals != std::string::npos) arguments.value = texts[0].substr(equals + 1);
           return true;
         },
         "An option to show, or to set with =VALUE; by default all are shown")
      ->type_name("[=VALUE]");
  option(app, "--drive", "N", arguments.driveNumber, parseCount, "a drive's number",
         "The settings of one drive, instead of the program's");
}

struct CommandRow {
  std::string_view name;
  CommandName command;
  const char* summary;
  void (*declare)(CLI::App&, Arguments&);
};
constexpr CommandRow kCommands[] = {
    {"devices", CommandName::devices, "List the drives of this machine",
     [](CLI::App&, Arguments&) {}},
    {"list", CommandName::list, "List partitions, volumes and free space", addTarget},
    {"info", CommandName::info, "Show one partition and its file system", declareInfo},
    {"create", CommandName::create, "Create a partition or a volume", declareCreate},
    {"delete", CommandName::del, "Delete a partition or a volume", declareDelete},
    {"format", CommandName::format, "Make a new, empty file system", declareFormat},
    {"set", CommandName::set, "Change name, type, marks and flags of a partition", declareSet},
    {"mbr", CommandName::mbr, "Show the four slots of the boot sector, or edit it", declareMbr},
    {"convert", CommandName::convert, "Change the kind of partition table; partitions stay",
     declareConvert},
    {"table", CommandName::table, "Keep the partition table in a file, put it back, or repair it",
     declareTable},
    {"settings", CommandName::settings, "Show or change the settings", declareSettings},
};

std::string overview() {
  std::string text = "Usage: tallowinctl COMMAND [TARGET] [OPTIONS]\n\nCommands:\n";
  for (const CommandRow& row : kCommands)
    text += format("  %-10s%s\n", std::string(row.name).c_str(), row.summary);
  return text +
         "\n'tallowinctl COMMAND --help' explains a command; --version prints the version.\n";
}

ParsedArguments usageError(const std::string& what, const std::string& helpCommand) {
  return {std::nullopt, what + "; see '" + helpCommand + " --help'.", ExitStatus::wrongUsage};
}

ParsedArguments parseCommand(const CommandRow& row, std::vector<std::string> words) {
  Arguments arguments;
  arguments.command = row.command;
  arguments.commandText = row.name;
  CLI::App app(row.summary, "tallowinctl " + arguments.commandText);
  app.set_help_flag("--help", "Print this help");
  row.declare(app, arguments);
  app.add_flag("--json", arguments.json, "One JSON object on standard output");
  app.add_flag("--quiet", arguments.quiet, "No progress");
  app.add_flag("--nd,--no-devices", arguments.hideDevices, "Keep off this machine's own devices");
  try {
    std::reverse(words.begin(), words.end());  // the parser takes them from the back
    app.parse(words);
  } catch (const CLI::CallForHelp&) {
    return {std::nullopt, app.help(), ExitStatus::done};
  } catch (const CLI::ParseError& error) {
    return usageError(error.what(), app.get_name());
  }
  return {std::move(arguments), {}, ExitStatus::done};
}

}  // namespace

std::optional<u32> parseType(std::string_view text) {
  for (const TypeWord& row : kTypeWords)
    if (equalsIgnoreCase(text, row.word)) return row.type;
  return parseFromOne(text);
}

ParsedArguments parseArguments(const std::vector<std::string>& words) {
  if (words.empty()) return usageError("a command is missing", "tallowinctl");
  if (words[0] == "--version") return {std::nullopt, kVersion, ExitStatus::done};
  if (words[0] == "--help" || words[0] == "-h") return {std::nullopt, overview(), ExitStatus::done};
  const auto row = std::find_if(std::begin(kCommands), std::end(kCommands),
                                [&](const CommandRow& r) { return r.name == words[0]; });
  if (row == std::end(kCommands))
    return usageError("there is no command '" + words[0] + "'", "tallowinctl");
  std::vector<std::string> rest(words.begin() + 1, words.end());
  // The window's spelling of the switch, which the parser would take for two letters.
  std::replace(rest.begin(), rest.end(), std::string("-nd"), std::string("--nd"));
  return parseCommand(*row, std::move(rest));
}

}  // namespace tallowin
