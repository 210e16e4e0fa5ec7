#include "ops/edit_model.h"

#include <algorithm>

#include "base/text.h"
#include "base/utf8.h"
#include "files/path_text.h"

namespace tallowin {
namespace {

constexpr std::size_t kLongestTitle = 64;

}  // namespace

EditModel::EditModel(FrontEnd& ui, Save save, Save saveAs)
    : ui_(ui), save_(std::move(save)), saveAs_(std::move(saveAs)) {}

void EditModel::setFile(const std::string& path, const std::string& limits) {
  const std::string name(fileNamePart(path).value_or(path));
  title = format("%s - %s", "Edit File", name.c_str());
  title.resize(bytesOfCharacters(title, kLongestTitle));
  limits_ = limits;
}

void EditModel::setReadOnly(const std::string& why) {
  isReadOnly = true;
  saveControl = saveAsControl = {true, false, why};
}

void EditModel::pass() {
  stateText = text.formText();
  if (isReadOnly) stateText = "Read only, " + stateText;
  if (!limits_.empty()) stateText = limits_;
  if (text.isChanged()) stateText = "Changed, " + stateText;
  placeText = placeIn(text.text(), cursor);
}

void EditModel::ok() {
  if (isReadOnly || (!text.isChanged() && !needsOtherName)) return close();
  if (save()) close();
}

void EditModel::cancel() {
  if (!text.isChanged()) return close();
  const MessageResult answer = ui_.messageBox(
      {MessageKind::warning, "Warning", "Save Changes?", ButtonSet::yesNoCancel, Consent::none});
  if (answer == MessageResult::no || (answer == MessageResult::yes && save())) close();
}

bool EditModel::save() {
  if (isReadOnly) return false;
  return needsOtherName ? saveAs_() : save_();
}

bool EditModel::saveAs() { return !isReadOnly && saveAs_(); }

std::string placeIn(std::string_view text, std::size_t position) {
  const std::string_view before = text.substr(0, position);
  const std::size_t start = before.rfind('\n') + 1;  // 0 when there is none
  const auto isFirstByte = [](char c) { return (static_cast<u8>(c) & 0xC0) != 0x80; };
  return format(
      "Line %zu, column %zu",
      static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n') + 1),
      static_cast<std::size_t>(std::count_if(before.begin() + static_cast<std::ptrdiff_t>(start),
                                             before.end(), isFirstByte) +
                               1));
}

}  // namespace tallowin
