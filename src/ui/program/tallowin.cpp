// The graphical program.
#include <iostream>
#include <memory>

#include "app/main_window_model.h"
#include "app/start_up.h"
#include "app/synchronize.h"
#include "base/host.h"
#include "base/stop_request.h"
#include "settings/options.h"
#include "settings/program_folders.h"
#include "ui/fltk_front_end.h"
#include "ui/views/main_window.h"

namespace {

using namespace tallowin;

int runWindow(const StartUp& start) {
  catchStopSignals();
  setLook();
  FltkFrontEnd frontEnd(start.session->options());
  synchronizeDrives(*start.session, frontEnd);
  MainWindowModel model(*start.session, frontEnd);
  MainWindow(model, start.session->folders().helpFile()).run();
  return kExitDone;
}

}  // namespace

int main(int argc, char** argv) {
  const StartUp start = startUp({argv, argv + argc}, std::make_unique<Host>(), std::cout);
  if (!start.session) return start.exitStatus;
  return runFrontEnd(std::cout, [&] { return runWindow(start); });
}
