#include "app/settings_flow.h"

#include "app/drive_settings_list_model.h"
#include "app/settings_model.h"
#include "base/text.h"
#include "ops/apply_drive_settings.h"
#include "ptable/embr/embr_image.h"

namespace tallowin {
namespace {

constexpr const char* kNotWritten = "The data could not be written to disk.";

std::optional<EmbrPrimaries> embrPrimaries(Drive& drive) {
  if (!drive.isEmbr()) return std::nullopt;
  EmbrPrimaries primaries;
  EmbrImage image;
  if (EmbrImage::read(drive.disk(), image) != Error::none) {
    primaries.whyFixed = "The EMBR of this drive cannot be read.";
    return primaries;
  }
  primaries.limited = image.limitsPrimaries();
  primaries.usedEntries = image.entryCount();
  primaries.whyFixed = drive.changeRefusal();
  return primaries;
}

DriveSettingsRecord& recordOf(const SettingsContext& context, Drive& drive) {
  return context.session.driveSettings(drive.driveNumber(), drive.disk().traits().path);
}

// The number of a device as its list counts, an image by its file.
std::string nameOf(Drive& drive) {
  if (drive.driveNumber() >> 16 == static_cast<u32>(DriveClass::device))
    return std::to_string(drive.driveNumber());
  const std::string& path = drive.disk().traits().path;
  return path.substr(path.rfind('/') + 1);
}

// The page of the current drive, if there is one.
std::unique_ptr<DriveSettingsModel> drivePage(const SettingsContext& context, Drive* drive) {
  if (!drive) return nullptr;
  auto page =
      std::make_unique<DriveSettingsModel>(recordOf(context, *drive), context.session.options(),
                                           driveFacts(*drive), embrPrimaries(*drive));
  page->driveLine = "Drive: " + nameOf(*drive);
  return page;
}

bool takesSettings(const Drive& drive) {
  return (drive.driveNumber() & kDriveTakesNoSettings) == 0;
}

const char* limitFailure(bool on) {
  return on ? "Unable to limit primaries" : "Unable to unlimit primaries";
}

// False when the record could not be saved; nothing was changed then, and the user was told.
bool storeDrive(const SettingsContext& context, Drive& drive, const DriveSettingsModel& model) {
  if (const std::string why = model.problem(); !why.empty()) {
    context.ui.errorBox(why);
    return false;
  }
  const DriveSettingsRecord record = model.result();
  const SettingsFile& file = context.session.settingsFile();
  if (model.saveAsDefault.ticked && file.writeDrive(record, model.keysToSave()) != Error::none) {
    context.ui.errorBox(kNotWritten);
    return false;
  }
  recordOf(context, drive) = record;
  const std::optional<bool> limit = model.wantedLimit();
  if (limit && context.limitPrimaries(drive, *limit) != Error::none)
    context.ui.errorBox(limitFailure(*limit));
  return true;
}

bool isWriteFailure(Failure error) {
  return error == Error::write || error == Error::tableWriteFailed ||
         error == Error::writeFailedNewTable || error == Error::writeFailedTableUnknown;
}

// An EMBR drive follows the option at once.
void followLimit(const SettingsContext& context, Drive* drive, bool on) {
  if (!drive || !drive->isEmbr()) return;
  const Failure error = context.limitPrimaries(*drive, on);
  if (error == Error::none) return;
  context.ui.errorBox(isWriteFailure(error) ? kNotWritten : limitFailure(on));
}

// The options of the file as the dialog wants them, without what only this run was told.
bool storeOptions(const SettingsContext& context, const Options& wanted) {
  Session& session = context.session;
  Options stored;
  session.settingsFile().readOptions(stored);
  copyShownOptions(wanted, stored);
  if (session.settingsFile().writeOptions(stored) != Error::none) {
    context.ui.errorBox(kNotWritten);
    return false;
  }
  copyShownOptions(wanted, session.options());
  return true;
}

}  // namespace

bool editDriveSettings(const SettingsContext& context, Drive& drive) {
  if (!takesSettings(drive)) return false;
  const std::unique_ptr<DriveSettingsModel> model = drivePage(context, &drive);
  model->store = [&] { return storeDrive(context, drive, *model); };
  context.ui.run(*model);
  return model->confirmed;
}

bool editSettingsOfDrives(const SettingsContext& context, std::size_t firstBus) {
  bool changed = false;
  DriveSettingsListModel model(Session::busNames(), firstBus, [&](std::size_t bus) {
    return context.session.driveNames(static_cast<DriveClass>(bus));
  });
  model.editDrive = [&](std::size_t bus, std::size_t index) {
    // Its settings are applied by opening it, and again when it is opened next.
    std::unique_ptr<Drive> drive;
    const u32 number = driveNumberOf(static_cast<DriveClass>(bus), static_cast<u32>(index));
    if (const Failure error = context.session.openDrive(number, drive); error != Error::none) {
      context.ui.errorBox(context.session.openFailure(error));
      return;
    }
    if (editDriveSettings(context, *drive)) changed = true;
  };
  context.ui.run(model);
  return changed;
}

bool editSettings(const SettingsContext& context, Drive* drive, const std::string& whyNoDrive) {
  if (drive && !takesSettings(*drive)) drive = nullptr;
  bool changed = false;
  SettingsModel model(context.session.options(), drivePage(context, drive), whyNoDrive);
  model.store = [&] {
    const bool limited = context.session.options().limitPrimaries;
    if (!storeOptions(context, model.options)) return false;
    changed = true;
    if (model.options.limitPrimaries != limited) followLimit(context, drive, !limited);
    return !model.drive() || storeDrive(context, *drive, *model.drive());
  };
  model.help = [&] {
    if (context.showHelp) context.showHelp(kSettingsHelpTopic);
  };
  model.editOtherDrives = [&] {
    const u32 bus = drive ? drive->driveNumber() >> 16 : 0;
    const DriveSettingsRecord before = drive ? recordOf(context, *drive) : DriveSettingsRecord{};
    if (!editSettingsOfDrives(context, bus)) return;
    changed = true;
    if (drive && recordOf(context, *drive) != before) model.setDrive(drivePage(context, drive));
  };
  context.ui.run(model);
  return changed;
}

}  // namespace tallowin
