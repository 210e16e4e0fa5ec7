#include "ops/undelete_model.h"

#include <algorithm>

#include "base/text.h"
#include "ops/operation_progress.h"
#include "probe/type_catalogue.h"

namespace tallowin {

const char* confidenceSentence(const LostPartition& found) {
  if (found.isEarlier)
    return "It is of an earlier time: another one in the same sectors was used after it.";
  if (found.isInside)
    return "It lies in another one: it is of another time, or an image in a file of that.";
  if (found.isContested)
    return "Another one in the same sectors is in order too: one of them is of an earlier time.";
  switch (found.confidence) {
    case Confidence::sure:
      return "What it begins with is in order, and leads to its other parts.";
    case Confidence::likely:
      return "What it begins with is in order, but not all of its other parts are there.";
    case Confidence::doubtful:
      return "It may be a copy or an old remain: its place does not fit, or most of it is gone.";
  }
  return "";
}

namespace {

std::string introOf(const LostReport& report, u32 sectorSizeBytes) {
  std::string text = report.found.size() == 1
                         ? std::string("One lost partition was found.")
                         : format("%zu lost partitions were found.", report.found.size());
  if (report.isStopped) text += " The search was stopped before its end.";
  if (report.unreadableSectors != 0)
    text += format(" %s could not be read.",
                   bytesText(report.unreadableSectors * sectorSizeBytes).c_str());
  return text;
}

}  // namespace

const char* confidenceWord(Confidence confidence) {
  switch (confidence) {
    case Confidence::sure:
      return "sure";
    case Confidence::likely:
      return "likely";
    case Confidence::doubtful:
      break;
  }
  return "doubtful";
}

// An EBR needs a place before its volume.
bool excludeEachOther(const LostPartition& a, const LostPartition& b) {
  const u64 firstOfA = a.ebrSector.value_or(a.startSector);
  const u64 firstOfB = b.ebrSector.value_or(b.startSector);
  return firstOfA <= b.endSector && firstOfB <= a.endSector;
}

UndeleteModel::UndeleteModel(const LostReport& report, u32 sectorSizeBytes, bool isInsideExtended,
                             std::string disk)
    : intro(introOf(report, sectorSizeBytes)),
      diskText(std::move(disk)),
      found_(report.found),
      isInsideExtended_(isInsideExtended) {
  for (const LostPartition& one : found_) {
    Row row;
    row.kind = one.kind;
    if (one.volumeCount != 0)
      row.kind += format(", %u volume%s", one.volumeCount, one.volumeCount == 1 ? "" : "s");
    row.start = std::to_string(one.startSector);
    row.size = (one.isSizeKnown ? "" : "up to ") +
               sizeText(one.startSector, one.endSector, sectorSizeBytes);
    row.label = one.label;
    row.confidence = confidenceWord(one.confidence);
    rows.push_back(std::move(row));
  }
  const std::vector<std::size_t> all = notInDoubt();
  for (const std::size_t row : all) rows[row].isPicked = true;
  if (!rows.empty()) selected = 0;
  if (all.empty())
    addAllControl = {true, false,
                     withoutRoom().empty()
                         ? "Everything that was found is in doubt."
                         : "Nothing that is not in doubt has a sector before it for its EBR."};
}

void UndeleteModel::toggle(std::size_t row) {
  if (row < rows.size()) rows[row].isPicked = !rows[row].isPicked;
}

std::vector<std::size_t> UndeleteModel::notInDoubt() const {
  std::vector<std::size_t> all;
  for (std::size_t row = 0; row < found_.size(); ++row)
    if (found_[row].confidence != Confidence::doubtful &&
        (!isInsideExtended_ || found_[row].ebrSector))
      all.push_back(row);
  return all;
}

std::vector<std::size_t> UndeleteModel::withoutRoom() const {
  std::vector<std::size_t> rowsOfThem;
  for (std::size_t row = 0; row < found_.size(); ++row)
    if (found_[row].confidence != Confidence::doubtful && isInsideExtended_ &&
        !found_[row].ebrSector)
      rowsOfThem.push_back(row);
  return rowsOfThem;
}

std::vector<std::size_t> UndeleteModel::picked() const {
  std::vector<std::size_t> ticked;
  for (std::size_t row = 0; row < rows.size(); ++row)
    if (rows[row].isPicked) ticked.push_back(row);
  return ticked;
}

std::string UndeleteModel::whyNotAddable(const std::vector<std::size_t>& wanted) const {
  if (wanted.empty()) return "Choose first what is to be added.";
  for (const std::size_t row : wanted) {
    if (isInsideExtended_ && !found_[row].ebrSector)
      return format("There is no sector left before number %zu for its EBR.", row + 1);
    for (const std::size_t other : wanted)
      if (other < row && excludeEachOther(found_[other], found_[row]))
        return format("Numbers %zu and %zu overlap; choose one of them.", other + 1, row + 1);
  }
  return {};
}

std::string UndeleteModel::leftOutText() const {
  if (leftOut_.empty()) return {};
  std::string text = "Not recovered, for there is no sector left before it for its EBR:";
  for (const std::size_t row : leftOut_)
    text += format("\nNumber %zu: %s%s%s, %s, from sector %s", row + 1, rows[row].kind.c_str(),
                   rows[row].label.empty() ? "" : " ", rows[row].label.c_str(),
                   rows[row].size.c_str(), rows[row].start.c_str());
  return text;
}

std::string UndeleteModel::detailsOf(std::size_t row) const {
  const LostPartition& one = found_[row];
  std::string text =
      format("Number %zu: sectors %llu to %llu, type %s.", row + 1,
             static_cast<unsigned long long>(one.startSector),
             static_cast<unsigned long long>(one.endSector), types::name(one.type).c_str());
  text += std::string("\n") + confidenceSentence(one);
  if (!one.isSizeKnown)
    text += "\nIts size is not stored; it would reach up to the next partition.";
  return text;
}

void UndeleteModel::pass() {
  details = selected && *selected < rows.size() ? detailsOf(*selected) : std::string();
  const std::string why = whyNotAddable(picked());
  addControl = why.empty() ? Control{} : Control{true, false, why};
}

void UndeleteModel::ok() {
  pass();
  leftOut_.clear();
  if (addControl.enabled) tryToAdd(picked());
}

void UndeleteModel::addAll() {
  leftOut_ = withoutRoom();
  if (addAllControl.enabled) tryToAdd(notInDoubt());
}

void UndeleteModel::tryToAdd(const std::vector<std::size_t>& wanted) {
  if (add && add(wanted)) close();
}

}  // namespace tallowin
