// The line of a terminal on which work in progress is shown.
#pragma once

#include <string>

namespace tallowin {

// Rewritten as the work goes on. What it showed last stays on the screen, with whatever is printed
// next below it.
class ProgressLine {
 public:
  // Writes to standard error, or nowhere.
  explicit ProgressLine(bool shown) : shown_(shown) {}

  // "TEXT PERCENT % DETAILS"; where the terminal is too narrow, the text is cut first.
  void draw(const std::string& text, unsigned percent, const std::string& details);
  // Keeps what is drawn, and goes to the next line.
  void end();

 private:
  bool shown_;
  bool drawn_ = false;
};

// Printable: line breaks, control characters and runs of blanks become one blank.
std::string onOneLine(const std::string& text);

}  // namespace tallowin
