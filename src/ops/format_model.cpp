#include "ops/format_model.h"

#include "base/text.h"

namespace tallowin {

std::string clusterText(u32 bytes) {
  return bytes < kKiB ? format("%uB", bytes) : format("%uKiB", static_cast<u32>(bytes / kKiB));
}

FormatModel::FormatModel(std::vector<const FileSystemKind*> kinds) : kinds_(std::move(kinds)) {
  for (const FileSystemKind* kind : kinds_) kindChoices.emplace_back(kind->name);
  kindControl.shown = kinds_.size() > 1;
  winNtOnlyLabel.shown = false;
  kindChanged();
}

void FormatModel::kindChanged() {
  const u32 wanted = clusterBytes();
  clusterChoices = {"Auto"};
  for (const u32 bytes : kind().clusterChoices) clusterChoices.push_back(clusterText(bytes));
  seenKind_ = kindChoice;
  if (!setClusterBytes(wanted)) clusterChoice = 0;
  alignForNtfsControl.shown = kind().alignsForNtfs;
}

u32 FormatModel::clusterBytes() const {
  const auto& choices = kinds_[seenKind_]->clusterChoices;
  return clusterChoice == 0 || clusterChoice > choices.size() ? 0 : choices[clusterChoice - 1];
}

bool FormatModel::setClusterBytes(u32 bytes) {
  const auto& choices = kind().clusterChoices;
  for (std::size_t i = 0; i <= choices.size(); ++i) {
    if ((i == 0 ? 0 : choices[i - 1]) != bytes) continue;
    clusterChoice = i;
    return true;
  }
  return false;
}

void FormatModel::pass() {
  if (kindChoice != seenKind_) kindChanged();
  winNtOnlyLabel.shown = clusterBytes() > kind().widelyReadClusterBytes;
  if (!alignForNtfsControl.shown) alignForNtfs = false;
}

void FormatModel::ok() {
  pass();
  confirmed = true;
  close();
}

}  // namespace tallowin
