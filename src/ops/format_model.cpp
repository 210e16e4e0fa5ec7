#include "ops/format_model.h"

#include <cstdlib>

#include "base/types.h"

namespace tallowin {
namespace {

constexpr unsigned long kBytesChoice = 512;  // the one choice that is not in KiB

u32 bytesOfChoice(const char* text) {
  const unsigned long number = std::strtoul(text, nullptr, 10);
  return static_cast<u32>(number == kBytesChoice ? number : number * kKiB);
}

}  // namespace

FormatModel::FormatModel(bool isFat) : isFat_(isFat) {
  winNtOnlyLabel.shown = false;
  alignForNtfsControl.shown = isFat;
}

u32 FormatModel::clusterBytes() const {
  return clusterChoice < kClusterChoices.size() ? bytesOfChoice(kClusterChoices[clusterChoice]) : 0;
}

bool FormatModel::setClusterBytes(u32 bytes) {
  for (std::size_t i = 0; i < kClusterChoices.size(); ++i) {
    if (bytesOfChoice(kClusterChoices[i]) != bytes) continue;
    clusterChoice = i;
    return true;
  }
  return false;
}

void FormatModel::pass() {
  winNtOnlyLabel.shown = isFat_ && clusterChoice == kClusterChoices.size() - 1;
  if (!alignForNtfsControl.shown) alignForNtfs = false;
}

void FormatModel::ok() {
  pass();
  confirmed = true;
  close();
}

}  // namespace tallowin
