// The options that several commands have, each declared in one place.
#pragma once

#include "base/types.h"
#include "cli/option_set.h"

namespace tallowin {

struct CommonOptions {
  std::string target;                  // device or image; empty for a command without one
  std::optional<u32> part;             // Drive::listNumber
  std::optional<u32> sectorSizeBytes;  // of an image; else it is found out

  bool json = false;
  bool quiet = false;
  bool hideDevices = false;  // nothing under /dev is opened

  // Of commands that write.
  bool yes = false;
  bool rehearse = false;
  std::optional<std::string> keepTableIn;  // a folder, in place of the usual one
  bool keepNoTable = false;
};

void declareTarget(OptionSet& options, CommonOptions& common);
void declarePart(OptionSet& options, CommonOptions& common);
// Where another option may stand in its place.
DeclaredOption declareOptionalPart(OptionSet& options, CommonOptions& common);
// For a command that asks, and neither changes a table by itself nor can be rehearsed.
void declareConsent(OptionSet& options, CommonOptions& common);
void declareWriting(OptionSet& options, CommonOptions& common);
// What every command has.
void declareOutput(OptionSet& options, CommonOptions& common);

}  // namespace tallowin
