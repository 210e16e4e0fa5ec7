// Every option of the program: where it is stored, how it is switched, and its default.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"
#include "settings/option_table.h"

namespace tallowin {

inline constexpr std::size_t kMaxImages = 10;

enum DisplayMode : u32 { kDisplayModeV = 1, kDisplayModeS = 2 };

// The values in force. A default-constructed object holds the defaults; an option that has its
// default is not written to the file. The file is shared with the boot manager, so it carries
// options that only the boot manager acts on; they are kept here so that they survive.
struct Options {
  bool verbose = true;
  u32 startAt = 1;
  bool volumeLabels = true;
  bool seqVolId = false;
  bool makeHd0Active = true;
  bool keepHdActive = true;
  bool directBootFdd = true;
  bool directBootNbd = true;
  bool directBootAllowed = true;
  bool directBoot = false;
  bool useHd0InBpb = true;
  bool limitPrimaries = false;
  bool requireUser = false;
  bool fixSwap = false;
  bool itMode = false;
  bool bootNow = true;
  bool fullPartitionList = false;
  bool completionAlarm = false;
  bool noRegUpdate = false;
  bool iso8601 = false;
  bool usb = true;
  bool fireWire = true;
  bool disableMaintenance = false;
  bool useOrgHdNum = false;
  u32 timeOut = 0;
  bool globalGeoDisable = false;
  bool globalGeoAlignHs = true;
  u32 globalGeoAlignVal = 0;  // bytes
  bool globalGeoAlign2K = false;
  bool globalGeoAlignCylinder = false;
  bool globalGeoMbrGeo = false;
  bool globalGeoMbrGeoValidate = true;
  bool globalGeoOrgGeo = false;
  bool win7Mbr = true;
  std::string timeZone;
  std::string backGround;
  std::string startSound;
  std::string maintPw;  // plain here, scrambled in the file
  bool allowPwChange = false;
  bool mbrEncryption = true;
  bool cacheResize = true;
  bool keepJournal = true;    // of what moves or resizes data, so that a cut can be undone
  bool proveContent = false;  // compare all files before and after what moves or resizes them
  bool codePage850 = false;   // of short names and labels of FAT; else 437
  std::string resumeB;
  std::string resumeU;

  // Set by switches only, never stored.
  u32 displayMode = 0;              // DisplayMode bits
  bool noDevices = false;           // keep off the machine's own devices
  bool rehearses = false;           // nothing reaches the disk, and nobody waits for the end
  std::string journalFile;          // in place of one in the state folder; empty: there
  std::vector<std::string> images;  // image files that are shown as disks, at most kMaxImages

  u32 codePage() const { return codePage850 ? 850 : 437; }

  friend bool operator==(const Options&, const Options&) = default;
};

std::span<const OptionRow<Options>> optionTable();

enum class SwitchStatus {
  applied,
  needsValue,  // the next argument is its value: pass it as `value`
  unknown,
  refused,  // known, but not possible: `message` says why
};

struct SwitchResult {
  SwitchStatus status = SwitchStatus::unknown;
  std::string message;
};

// One item of the command line or the environment without its leading "-" or "+": a switch name,
// or a switch name, ":" and a value. `value` is the following argument, once it was asked for.
SwitchResult applySwitch(Options& options, std::string_view item,
                         const std::string* value = nullptr);

// The arguments behind the program's name. Empty when all were taken, else the message for the
// user, one line without its line end; options before the faulty argument stay applied.
std::string applyCommandLine(Options& options, std::span<const std::string> arguments);

// Items separated by ";", applied from the last to the first; what is unknown is skipped.
void applyEnvironment(Options& options, std::string_view items);

}  // namespace tallowin
