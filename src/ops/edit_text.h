// `EditText`: the text of a file as an editor shows it, and the bytes that it is on the disk.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"

namespace tallowin {

// What nobody changed keeps its bytes: each line end is kept as it is (CR LF, LF or CR), and a file
// that is no UTF-8 is taken as text of a code page, each byte of which is one character. A line
// that is new ends like the one that it was made from.
class EditText {
 public:
  struct Change {
    std::size_t position = 0;  // bytes of text()
    std::size_t removed = 0;
    std::string inserted;
  };
  // A character that the file cannot hold, and where it is.
  struct Misfit {
    std::string character;
    std::size_t position = 0;
  };

  // Takes a file as it is, without NULs. `codePage`: 437 or 850.
  void load(std::string_view bytes, u32 codePage);

  // UTF-8 with LF between lines; bytes below a blank are as they are in the file.
  const std::string& text() const { return text_; }
  // What is to be written. What a code page does not have has no bytes: see misfit().
  std::string bytes() const;
  std::optional<Misfit> misfit() const;
  // "UTF-8, CR LF".
  std::string formText() const;

  // The editor made this change of text(); `inserted` has LF alone as line ends.
  void change(std::size_t position, std::size_t removed, std::string_view inserted);
  // What the editor has to do to take the last change back, or to make it again; nothing when there
  // is none. The text has it already.
  std::optional<Change> undo();
  std::optional<Change> redo();

  // Whether the text is another one than was loaded, or saved last.
  bool isChanged() const { return text_ != savedText_ || ends_ != savedEnds_; }
  void setSaved();

 private:
  enum class LineEnd : u8 { crLf, lf, cr };
  using LineEnds = std::vector<LineEnd>;
  struct Step {
    std::size_t position = 0;
    std::string removed;
    LineEnds removedEnds;
    std::string inserted;
    LineEnds insertedEnds;
  };

  void splitLines(std::string_view bytes);
  std::size_t lineOf(std::size_t position) const;
  LineEnd endFor(std::size_t line) const;
  void apply(std::size_t position, std::size_t removed, std::string_view inserted,
             const LineEnds& insertedEnds);
  void remember(Step step);

  std::string text_;
  LineEnds ends_;  // one for each LF of text_
  std::string savedText_;
  LineEnds savedEnds_;
  std::vector<Step> steps_;
  std::size_t stepsDone_ = 0;  // those behind were taken back
  bool mayMerge_ = false;      // the next change is typed on at the last one
  bool hasMark_ = false;       // begins with the mark of UTF-8, which is not shown
  u32 codePage_ = 0;           // 0: UTF-8
};

// What is pasted, as change() and the editor take it: UTF-8 with LF at line ends, and no NULs.
std::string pastedText(std::string_view text);

}  // namespace tallowin
