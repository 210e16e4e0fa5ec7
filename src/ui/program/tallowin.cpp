// The graphical program.
#include <iostream>
#include <memory>

#include "app/main_window_model.h"
#include "app/start_up.h"
#include "app/synchronize.h"
#include "base/host.h"
#include "settings/options.h"
#include "settings/program_folders.h"
#include "ui/fltk_front_end.h"
#include "ui/views/main_window.h"

int main(int argc, char** argv) {
  using namespace tallowin;
  const StartUp start = startUp({argv, argv + argc}, std::make_unique<Host>(), std::cout);
  if (!start.session) return start.exitStatus;
  setLook();
  FltkFrontEnd frontEnd(start.session->options());
  synchronizeDrives(*start.session, frontEnd);
  MainWindowModel model(*start.session, frontEnd);
  MainWindow(model, start.session->folders().helpFile()).run();
  return kExitDone;
}
