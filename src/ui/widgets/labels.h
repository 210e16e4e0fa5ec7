// Widgets that show text as it is.
#pragma once

#include <FL/Fl_Box.H>

#include <string>

namespace tallowin {

// The toolkit draws symbols for "@" in labels; names of disks, partitions and files may hold any
// character, so texts that are not the program's own are shown with this.
class TextLabel : public Fl_Box {
 public:
  TextLabel(int x, int y, int width, int height, const std::string& text = {},
            Fl_Align align = FL_ALIGN_LEFT | FL_ALIGN_TOP);

  void setText(const std::string& text);
  const std::string& text() const { return text_; }

 private:
  void draw() override;

  std::string text_;
};

// The rectangle that a text fills, wrapped at `wrapWidth` (0: only at its line ends).
struct TextSize {
  int width = 0;
  int height = 0;
};
TextSize measureText(const std::string& text, int wrapWidth, Fl_Fontsize size);

// The largest size, `size` or below, at which the text is at most `width` pixels wide.
Fl_Fontsize fittingSize(const char* text, int width, Fl_Fontsize size);
// Makes the label of a button fit into it.
void fitLabel(Fl_Widget& widget, Fl_Fontsize size);

}  // namespace tallowin
