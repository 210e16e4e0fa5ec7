// The least that a program of the toolkit can do: what window_bench.sh measures against.
#include <FL/Fl.H>
#include <FL/Fl_Double_Window.H>

int main() {
  Fl_Double_Window window(587, 400, "Empty window");
  window.end();
  window.show();
  return Fl::run();
}
