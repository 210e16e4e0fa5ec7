// The command line of the scripting front end, parsed and checked as far as no disk is needed.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/amount.h"
#include "cli/exit_status.h"
#include "cli/property_plan.h"
#include "ops/format_flow.h"
#include "ptable/mbr/boot_code.h"

namespace tallowin {

enum class CommandName {
  devices,
  list,
  info,
  create,
  del,
  format,
  set,
  mbr,
  convert,
  table,
  settings
};

enum class TableAction { backup, restore, repair };

// What `mbr` does, in this order; slots count from 1.
struct MbrArguments {
  std::optional<u32> deleteSlot;
  std::optional<u32> insert;  // a partition's number, into `slot`
  std::optional<u32> slot;
  std::optional<u32> setActive;
  bool fillEndChs = false;
  std::optional<BootCode> bootCode;
  bool clearSignature = false;
  std::optional<u32> signature;

  bool changesAnything() const {
    return deleteSlot || insert || setActive || fillEndChs || bootCode || clearSignature ||
           signature;
  }
};

struct Arguments {
  CommandName command = CommandName::list;
  std::string commandText;  // as typed
  std::string target;       // device or image; empty for devices and settings

  bool json = false;
  bool quiet = false;
  bool hideDevices = false;  // nothing under /dev is opened

  // Commands that write.
  bool yes = false;
  bool rehearse = false;

  std::optional<u32> part;       // Drive::listNumber
  std::optional<u32> freeBlock;  // from 1

  // create; without a size the whole block
  std::optional<Amount> size;
  u32 type = 0;
  std::optional<std::string> name;
  std::optional<Amount> before;
  std::optional<Amount> after;
  bool format = false;

  // format, and create with format
  std::optional<u32> clusterBytes;
  std::optional<FormatKind> fileSystem;
  std::optional<std::string> label;
  bool scan = false;
  bool alignNtfs = false;

  // delete
  bool clearBootSector = false;
  bool wipe = false;
  bool ignoreErrors = false;

  SetArguments set;  // and the name
  MbrArguments mbr;

  // convert
  std::optional<Scheme> convertTo;
  bool overwrite = false;

  // table
  TableAction tableAction = TableAction::backup;
  std::string file;

  // settings; without a key all of them
  std::string key;
  std::optional<std::string> value;
  std::optional<u32> driveNumber;
};

// Either arguments to run, or a text to print and the status to end with.
struct ParsedArguments {
  std::optional<Arguments> arguments;
  std::string text;  // help or version, or what is wrong with the usage
  ExitStatus status = ExitStatus::done;
};

// `words` are the arguments of main without the program's name.
ParsedArguments parseArguments(const std::vector<std::string>& words);

// A type number (decimal, 0x.. or 0..), or one of the words that stand for the usual types;
// nothing for anything else and for 0.
std::optional<u32> parseType(std::string_view text);

}  // namespace tallowin
