#include "ui/views/format_summary_view.h"

#include <algorithm>

#include "ui/widgets/layout.h"
#include "ui/widgets/panel.h"

namespace tallowin {
namespace {

using namespace layout;

constexpr int kWidth = 260;  // the title beside its buttons; wider when a line needs it
constexpr int kHeight = 195;

std::vector<std::string> allLines(const FormatSummaryModel& model) {
  std::vector<std::string> lines = model.lines;
  lines.insert(lines.end(), model.notes.begin(), model.notes.end());
  return lines;
}

int widthFor(const std::vector<std::string>& lines) {
  int width = kWidth;
  for (const std::string& line : lines)
    width = std::max(width, measureText(line, 0, kFontSize).width + 2 * kMargin + 4);
  return width;
}

}  // namespace

FormatSummaryView::FormatSummaryView(FormatSummaryModel& model)
    : DialogView(model, widthFor(allLines(model)),
                 kHeight + kLineHeight * static_cast<int>(model.notes.size()), model.title) {
  int y = kMargin;
  for (const std::string& line : allLines(model)) {
    addText(kMargin, y, window().w() - 2 * kMargin, kLineHeight, line);
    y += kLineHeight;
  }
  addButtons("OK", nullptr);
}

}  // namespace tallowin
