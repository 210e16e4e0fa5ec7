#include "app/synchronize.h"

#include "ops/synchronize_flow.h"

namespace tallowin {

void synchronizeDrives(Session& session, FrontEnd& frontEnd) {
  std::unique_ptr<ProgressBox> box;
  for (const DriveClass bus : {DriveClass::device, DriveClass::image}) {
    const std::size_t count = session.driveNames(bus).size();
    for (std::size_t i = 0; i < count; ++i) {
      std::unique_ptr<Drive> drive;
      const u32 number = driveNumberOf(bus, static_cast<u32>(i));
      // A disk that cannot be opened now says so when it is selected.
      if (session.openDrive(number, drive) != Error::none) continue;
      if (!drive->isEmbr()) continue;
      if (!box)
        box = frontEnd.progressBox("Startup", MessageKind::notice, "Synchronizing In Progress...");
      synchronizeFlow(session.context(frontEnd), *drive, static_cast<int>(i));
    }
  }
}

}  // namespace tallowin
