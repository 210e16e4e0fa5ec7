#include "cli/progress_line.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

#include "base/text.h"

namespace tallowin {
namespace {

constexpr const char* kClearLine = "\r\033[K";
constexpr std::size_t kDefaultColumns = 80;

std::size_t terminalColumns() {
  winsize size{};
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col
                                                                           : kDefaultColumns;
}

}  // namespace

std::string onOneLine(const std::string& text) {
  std::string line;
  for (const char c : printableFromUtf8(text)) {
    if (c != ' ') line += c;
    if (c == ' ' && !line.empty() && line.back() != ' ') line += ' ';
  }
  if (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

void ProgressLine::draw(const std::string& text, unsigned percent, const std::string& details) {
  if (!shown_) return;
  const std::string state = onOneLine(format(" %u %% %s", percent, details.c_str()));
  // A line that wraps could not be taken back. The last column stays free, and one blank between.
  const std::size_t columns = terminalColumns();
  const std::size_t room = columns > state.size() + 2 ? columns - state.size() - 2 : 0;
  const std::string line = (onOneLine(text).substr(0, room) + " " + state).substr(0, columns - 1);
  std::fprintf(stderr, "%s%s", kClearLine, line.c_str());
  std::fflush(stderr);
  drawn_ = true;
}

void ProgressLine::end() {
  if (drawn_) std::fputc('\n', stderr);
  drawn_ = false;
}

}  // namespace tallowin
