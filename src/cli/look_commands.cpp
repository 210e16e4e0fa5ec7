// devices and list: what is there, without changing anything.
#include <cstdio>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/target.h"
#include "ops/unfinished_work.h"

namespace tallowin {
namespace {

struct FoundDrive {
  std::string path;
  std::string name;
  std::string model;
  std::string serial;
  std::optional<u64> sizeBytes;
  std::string scheme;
};

FoundDrive lookAt(Session& session, u32 index) {
  const DriveListEntry& entry = *session.driveList().entryOfKind(index, kHardDiskKind);
  FoundDrive found;
  found.path = entry.path;
  found.name = session.driveList().displayName(index, kHardDiskKind);
  std::shared_ptr<DiskDevice> disk;
  u32 driveNumber = 0;
  if (session.handles().openPath(entry.path, DiskAccess::readOnly, disk, driveNumber) !=
      Error::none)
    return found;
  found.model = disk->model();
  found.serial = disk->serial();
  if (const auto sectors = disk->sectorCount()) found.sizeBytes = *sectors * disk->sectorSize();
  std::unique_ptr<Drive> drive;
  if (session.openDrive(disk, driveNumber, drive) == Error::none)
    found.scheme = drive->schemeName();
  return found;
}

void writeFound(JsonWriter& json, const FoundDrive& found) {
  json.beginObject();
  json.text("path", found.path);
  json.text("model", found.model);
  json.text("serial", found.serial);
  json.numberOrNull("size", found.sizeBytes);
  json.textOrNull("scheme", found.scheme.empty() ? std::nullopt : std::optional(found.scheme));
  json.endObject();
}

std::string foundText(const FoundDrive& found) {
  const std::string size =
      found.sizeBytes ? format("%llu MiB", static_cast<unsigned long long>(*found.sizeBytes / kMiB))
                      : "not readable";
  return format("%-16s %14s  %-4s %-20s %s", found.path.c_str(), size.c_str(), found.scheme.c_str(),
                found.serial.c_str(), found.name.c_str());
}

class DevicesCommand : public Command {
  void declare(OptionSet&, CommonOptions&) override {}
  CommandResult run(CommandContext& context) override;
};

CommandResult DevicesCommand::run(CommandContext& context) {
  if (context.options.json) context.json.beginArray("devices");
  const u32 count = context.session.driveList().countOfKind(kHardDiskKind);
  for (u32 i = 0; i < count; ++i) {
    const FoundDrive found = lookAt(context.session, i);
    if (context.options.json)
      writeFound(context.json, found);
    else
      std::printf("%s\n", std::string(trimRight(foundText(found))).c_str());
  }
  if (context.options.json)
    context.json.endArray();
  else if (count == 0 && !context.options.hideDevices)
    std::fprintf(stderr, "%s\n", context.session.whyNoDevices().c_str());
  return {};
}

void writeUnfinished(JsonWriter& json, const UnfinishedWork& work) {
  json.beginObject("unfinished");
  json.text("operation", work.operation);
  json.text("what", work.what);
  json.text("started", work.startedAt);
  json.text("journal", work.journalPath);
  json.boolean("under_way", work.isUnderWay);
  json.boolean("journal_missing", work.isMissing);
  json.endObject();
}

class ListCommand : public Command {
  void declare(OptionSet& options, CommonOptions& common) override {
    declareTarget(options, common);
  }
  CommandResult run(CommandContext& context) override;
};

CommandResult ListCommand::run(CommandContext& context) {
  Target target;
  if (CommandResult result = openTarget(context, TargetUse::look, target); !result.succeeded())
    return result;
  const auto work = unfinishedWorkOn(context.session.folders(), *target.drive);
  if (context.options.json) {
    writeDrive(context.json, *target.drive, context.options.target);
    writeRows(context.json, context.session.fileSystems(), *target.drive);
    if (work) writeUnfinished(context.json, *work);
  } else {
    if (work) std::printf("%s\n\n", unfinishedText(*work).c_str());
    std::fputs(listingText(context.session.fileSystems(), *target.drive).c_str(), stdout);
  }
  return {};
}

}  // namespace

const CommandRow kDevicesCommand = {"devices", "List the drives of this machine",
                                    makeCommand<DevicesCommand>, true};
const CommandRow kListCommand = {"list", "List partitions, volumes and free space",
                                 makeCommand<ListCommand>};

}  // namespace tallowin
