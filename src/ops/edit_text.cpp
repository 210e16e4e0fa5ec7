#include "ops/edit_text.h"

#include <algorithm>

#include "base/text.h"
#include "base/utf8.h"
#include "fat/fat_code_page.h"
#include "fs/names.h"

namespace tallowin {
namespace {

constexpr std::string_view kMark = "\xEF\xBB\xBF";
constexpr u8 kFirstOfUpperHalf = 0x80;

std::size_t lineEndsIn(std::string_view text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<u8>(c) < kFirstOfUpperHalf; });
}

std::string fromCodePage(std::string_view bytes, u32 number) {
  const FatCodePage page(number);
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const char c : bytes) {
    const u8 byte = static_cast<u8>(c);
    appendUtf8(text, byte < kFirstOfUpperHalf ? char32_t{byte} : page.unitOf(byte));
  }
  return text;
}

std::optional<char> byteOf(const FatCodePage& page, char32_t character) {
  if (character < kFirstOfUpperHalf) return static_cast<char>(character);
  if (character > 0xFFFF) return std::nullopt;
  const std::optional<u8> byte = page.byteOf(static_cast<char16_t>(character));
  return byte ? std::optional(static_cast<char>(*byte)) : std::nullopt;
}

// What is typed or deleted one character after the other is taken back at once, a word at a time.
bool isOneCharacter(std::string_view text) {
  return !text.empty() && text != "\n" && bytesOfCharacters(text, 1) == text.size();
}

bool endsWord(const std::string& text) { return text.ends_with(' ') || text.ends_with('\n'); }

}  // namespace

void EditText::load(std::string_view bytes, u32 codePage) {
  *this = EditText();
  hasMark_ = bytes.starts_with(kMark);
  if (hasMark_) bytes.remove_prefix(kMark.size());
  if (!utf16Of(bytes)) codePage_ = codePage;
  // The mark of one is part of the text of the other.
  if (hasMark_ && codePage_ != 0) {
    hasMark_ = false;
    bytes = {bytes.data() - kMark.size(), bytes.size() + kMark.size()};
  }
  splitLines(bytes);
  if (codePage_ != 0) text_ = fromCodePage(text_, codePage_);
  setSaved();
}

void EditText::splitLines(std::string_view bytes) {
  text_.reserve(bytes.size());
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    const char c = bytes[at];
    if (c != '\r' && c != '\n') {
      text_ += c;
      continue;
    }
    const bool isPair = c == '\r' && at + 1 < bytes.size() && bytes[at + 1] == '\n';
    ends_.push_back(isPair ? LineEnd::crLf : c == '\r' ? LineEnd::cr : LineEnd::lf);
    text_ += '\n';
    if (isPair) ++at;
  }
}

std::string EditText::bytes() const {
  const FatCodePage page(codePage_);
  std::string bytes(hasMark_ ? kMark : "");
  bytes.reserve(text_.size() + ends_.size());
  std::size_t line = 0;
  for (std::size_t at = 0; at < text_.size();) {
    if (text_[at] == '\n') {
      constexpr const char* kEnds[] = {"\r\n", "\n", "\r"};
      const bool isBehindCr = line > 0 && text_[at - 1] == '\n' && ends_[line - 1] == LineEnd::cr;
      // An LF directly behind a CR would make one line end of the two.
      const bool fuses = isBehindCr && ends_[line] == LineEnd::lf;
      bytes += kEnds[static_cast<std::size_t>(fuses ? LineEnd::crLf : ends_[line])];
      ++line;
      ++at;
    } else if (codePage_ == 0) {
      bytes += text_[at++];
    } else if (const auto byte = byteOf(page, nextCharacter(text_, at))) {
      bytes += *byte;
    }
  }
  return bytes;
}

std::optional<EditText::Misfit> EditText::misfit() const {
  if (codePage_ == 0) return std::nullopt;
  const FatCodePage page(codePage_);
  for (std::size_t at = 0; at < text_.size();) {
    const std::size_t start = at;
    if (!byteOf(page, nextCharacter(text_, at)))
      return Misfit{text_.substr(start, at - start), start};
  }
  return std::nullopt;
}

std::string EditText::formText() const {
  std::string page = codePage_ != 0   ? format("Code page %u", codePage_)
                     : isAscii(text_) ? "ASCII"
                                      : "UTF-8";
  if (ends_.empty()) return page;
  const bool isMixed =
      std::any_of(ends_.begin(), ends_.end(), [this](LineEnd end) { return end != ends_.front(); });
  constexpr const char* kNames[] = {"CR LF", "LF", "CR"};
  return page + ", " +
         (isMixed ? "mixed line ends" : kNames[static_cast<std::size_t>(ends_.front())]);
}

std::size_t EditText::lineOf(std::size_t position) const {
  return lineEndsIn(std::string_view(text_).substr(0, position));
}

EditText::LineEnd EditText::endFor(std::size_t line) const {
  if (ends_.empty()) return LineEnd::crLf;
  return ends_[std::min(line, ends_.size() - 1)];
}

void EditText::apply(std::size_t position, std::size_t removed, std::string_view inserted,
                     const LineEnds& insertedEnds) {
  const auto at = ends_.begin() + static_cast<std::ptrdiff_t>(lineOf(position));
  const std::size_t lost = lineEndsIn(std::string_view(text_).substr(position, removed));
  ends_.insert(ends_.erase(at, at + static_cast<std::ptrdiff_t>(lost)), insertedEnds.begin(),
               insertedEnds.end());
  text_.replace(position, removed, inserted);
}

void EditText::change(std::size_t position, std::size_t removed, std::string_view inserted) {
  const std::size_t line = lineOf(position);
  const std::size_t lost = lineEndsIn(std::string_view(text_).substr(position, removed));
  Step step{position, text_.substr(position, removed), {}, std::string(inserted), {}};
  const auto firstEnd = ends_.begin() + static_cast<std::ptrdiff_t>(line);
  step.removedEnds.assign(firstEnd, firstEnd + static_cast<std::ptrdiff_t>(lost));
  step.insertedEnds.assign(lineEndsIn(inserted), endFor(line));
  apply(position, removed, inserted, step.insertedEnds);
  remember(std::move(step));
}

void EditText::remember(Step step) {
  steps_.resize(stepsDone_);
  const bool isTyped = step.removed.empty() && isOneCharacter(step.inserted);
  const bool isDeleted = step.inserted.empty() && isOneCharacter(step.removed);
  if (mayMerge_ && !steps_.empty() && (isTyped || isDeleted)) {
    Step& last = steps_.back();
    if (isTyped && last.removed.empty() && !last.inserted.empty() &&
        step.position == last.position + last.inserted.size() && !endsWord(last.inserted)) {
      last.inserted += step.inserted;
      return;
    }
    if (isDeleted && last.inserted.empty() && last.removedEnds.empty()) {
      if (step.position == last.position) {
        last.removed += step.removed;
        return;
      }
      if (step.position + step.removed.size() == last.position) {
        last.removed = step.removed + last.removed;
        last.position = step.position;
        return;
      }
    }
  }
  mayMerge_ = isTyped || isDeleted;
  steps_.push_back(std::move(step));
  ++stepsDone_;
}

std::optional<EditText::Change> EditText::undo() {
  if (stepsDone_ == 0) return std::nullopt;
  mayMerge_ = false;
  const Step& step = steps_[--stepsDone_];
  apply(step.position, step.inserted.size(), step.removed, step.removedEnds);
  return Change{step.position, step.inserted.size(), step.removed};
}

std::optional<EditText::Change> EditText::redo() {
  if (stepsDone_ == steps_.size()) return std::nullopt;
  mayMerge_ = false;
  const Step& step = steps_[stepsDone_++];
  apply(step.position, step.removed.size(), step.inserted, step.insertedEnds);
  return Change{step.position, step.removed.size(), step.inserted};
}

void EditText::setSaved() {
  savedText_ = text_;
  savedEnds_ = ends_;
  mayMerge_ = false;
}

std::string pastedText(std::string_view text) {
  std::string valid;
  if (!utf16Of(text)) {
    for (std::size_t at = 0; at < text.size();) appendUtf8(valid, nextCharacter(text, at));
    text = valid;
  }
  std::string clean;
  clean.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isPair = text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n';
    if (text[at] == '\0' || isPair) continue;
    clean += text[at] == '\r' ? '\n' : text[at];
  }
  return clean;
}

}  // namespace tallowin
