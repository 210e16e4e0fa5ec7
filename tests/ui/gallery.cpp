// Opens one window by name with made-up contents and prints what it answered:
//   ui_gallery NAME [ARGUMENT ...]
// For looking at windows, and for tests that press their keys.
#include <FL/Fl.H>
#include <FL/Fl_Box.H>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "app/drive_settings_list_model.h"
#include "app/settings_model.h"
#include "app/start_up.h"
#include "base/host.h"
#include "base/stop_request.h"
#include "base/text.h"
#include "base/waiting.h"
#include "disk/linux_disk.h"
#include "ops/create_model.h"
#include "ops/delete_model.h"
#include "ops/edit_model.h"
#include "ops/format_model.h"
#include "ops/format_summary_model.h"
#include "ui/fltk_front_end.h"
#include "ui/views/help_window.h"
#include "ui/widgets/dialog_window.h"
#include "ui/widgets/event_pump.h"

namespace tallowin {
namespace {

using Arguments = std::vector<std::string>;

std::string argument(const Arguments& arguments, std::size_t index, const std::string& otherwise) {
  return index < arguments.size() ? arguments[index] : otherwise;
}

u32 number(const std::string& text) {
  u64 value = 0;
  return parseNumber(text, value) ? static_cast<u32>(value) : 0;
}

template <typename Value>
Value named(const std::map<std::string, Value>& values, const std::string& name) {
  return values.at(name);
}

MessageKind kindNamed(const std::string& name) {
  return named<MessageKind>({{"error", MessageKind::error},
                             {"question", MessageKind::question},
                             {"notice", MessageKind::notice},
                             {"warning", MessageKind::warning}},
                            name);
}

// message [KIND [BUTTONS [CONSENT [TEXT [TITLE]]]]]
void message(FrontEnd& ui, const Arguments& arguments) {
  MessageBox box;
  box.kind = kindNamed(argument(arguments, 0, "question"));
  box.buttons = named<ButtonSet>({{"ok", ButtonSet::ok},
                                  {"okCancel", ButtonSet::okCancel},
                                  {"yesNo", ButtonSet::yesNo},
                                  {"yesNoCancel", ButtonSet::yesNoCancel},
                                  {"continueCancel", ButtonSet::continueCancel}},
                                 argument(arguments, 1, "yesNo"));
  box.consent = named<Consent>({{"none", Consent::none}, {"general", Consent::general}},
                               argument(arguments, 2, "none"));
  box.text = argument(
      arguments, 3,
      "All data on Partition 'LETTERS' will be erased.\n\nAre you sure you want to continue?");
  box.title = argument(arguments, 4, "");
  std::cout << static_cast<u32>(ui.messageBox(box)) << std::endl;
}

// input [MAXLENGTH [TEXT]]
void input(FrontEnd& ui, const Arguments& arguments) {
  TextInput input{"Volume Label",
                  "The new label of the volume:", number(argument(arguments, 0, "11")),
                  argument(arguments, 1, "LETTERS")};
  const bool ok = ui.textInput(input);
  std::cout << (ok ? "ok " : "cancel ") << input.text << std::endl;
}

// choice [LABEL ...]
void choice(FrontEnd& ui, const Arguments& arguments) {
  ChoiceBox box{"Change Disk Type", MessageKind::question, "Which type is the disk to have?",
                arguments.empty() ? Arguments{"&MBR", "&GPT",
                                              "\x1b"
                                              "Cancel"}
                                  : arguments};
  std::cout << ui.choiceBox(box) << std::endl;
}

// progress [BUTTON]: counts up, slowly, and stops when it is cancelled.
void progress(FrontEnd& ui, const Arguments& arguments) {
  const auto dialog = ui.progressDialog("Format", "Checking for surface defects...",
                                        argument(arguments, 0, "&Skip"));
  for (u32 step = 0; step <= 1000; ++step) {
    dialog->setProgress(
        step / 10, format("%u of 500 MiB, 48 MiB/s, %u s left", step / 2, (1000 - step) / 100));
    if (dialog->isCancelled()) {
      std::cout << "cancelled" << std::endl;
      return;
    }
    waitedPause(20);
  }
  std::cout << "done" << std::endl;
}

// A disk that answers no read until it is let go, ten seconds at most: one that sleeps in its call,
// or a pipe that holds nothing yet, for which the ring waits.
class StuckHost : public Host {
 public:
  explicit StuckHost(bool isPipe) : isPipe_(isPipe) {
    if (::pipe(ends_) != 0) std::exit(1);
  }

  void letGo() {
    isLetGo_ = true;
    const std::string sector(512, 'x');
    if (isPipe_ && ::write(ends_[1], sector.data(), sector.size()) < 0) std::exit(1);
  }
  bool isLetGo() const { return isLetGo_; }

  int open(const std::string&, int flags) override {
    return (flags & O_DIRECT) != 0 ? -1 : ::dup(ends_[0]);
  }
  i64 readAt(int descriptor, void* buffer, std::size_t bytes, u64 offset) override {
    if (isPipe_) return Host::readAt(descriptor, buffer, bytes, offset);
    return blockingCall([&]() -> i64 {
      for (int tick = 0; tick < 1000 && !isLetGo_; ++tick)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      return static_cast<i64>(bytes);
    });
  }

 private:
  bool isPipe_;
  int ends_[2] = {-1, -1};
  std::atomic<bool> isLetGo_{false};
};

class CountingBox : public Fl_Box {
 public:
  using Fl_Box::Fl_Box;
  int drawn = 0;

 private:
  void draw() override {
    ++drawn;
    Fl_Box::draw();
  }
};

// stuck [pipe]: whether a window is painted and Cancel is noted while a disk does not answer.
void stuck(FrontEnd& ui, const Arguments& arguments) {
  StuckHost host(argument(arguments, 0, "") == "pipe");
  const auto disk = LinuxDisk::open(host, {.path = "/dev/stuck"}, O_RDONLY);
  DialogWindow window(200, 60, "Beside");
  auto* box = new CountingBox(0, 0, 200, 60, "Painted when it is shown");
  window.end();
  window.show();
  const auto dialog = ui.progressDialog("Format", "Reading a disk that is stuck", "Cancel");
  // Called whenever events have been served.
  std::pair watched(dialog.get(), &host);
  Fl::add_check(
      [](void* data) {
        const auto& [progress, stuckHost] = *static_cast<decltype(watched)*>(data);
        if (!stuckHost->isLetGo() && progress->isCancelled()) stuckHost->letGo();
      },
      &watched);
  u8 sector[512];
  const Failure failed = disk->readSectors(0, sector, 1);
  std::cout << (failed ? "failed" : "read") << (host.isLetGo() ? ", cancelled" : ", starved")
            << (box->drawn > 0 ? ", painted" : ", blank") << std::endl;
}

// file FOLDER [FLAGS [PATTERNS]]
void file(FrontEnd& ui, const Arguments& arguments) {
  const auto chosen =
      ui.chooseFile({argument(arguments, 0, "/usr/include"), argument(arguments, 2, "*.*"),
                     number(argument(arguments, 1, "0x44"))});
  std::cout << (chosen ? "chosen " + *chosen : "cancelled") << std::endl;
}

// edit [TEXT [readonly | long]]: prints what is saved, with its line ends
void edit(FrontEnd& ui, const Arguments& arguments) {
  const auto print = [](const char* how, const std::string& bytes) {
    std::cout << how;
    for (const char c : bytes)
      std::cout << (c == '\r' ? "\\r" : c == '\n' ? "\\n" : std::string(1, c));
    std::cout << ' ' << std::flush;
  };
  EditModel* shown = nullptr;
  const auto save = [&](const char* how) {
    print(how, shown->text.bytes());
    shown->text.setSaved();
    return true;
  };
  EditModel model(
      ui, [&] { return save("save:"); }, [&] { return save("saveAs:"); });
  shown = &model;
  model.text.load(argument(arguments, 0, "one\r\ntwo\nthree"), 437);
  if (argument(arguments, 1, "") == "long") model.text.load(std::string(500'000, 'x'), 437);
  model.setFile("/folder/file.txt", "");
  if (argument(arguments, 1, "") == "readonly") model.setReadOnly("This disc can only be read.");
  model.help = [&] { ui.noticeBox("Here is the help.", "Help"); };
  ui.run(model);
  std::cout << "closed" << std::endl;
}

const FileSystemKinds& kinds() {
  static const FileSystemKinds kKinds = registeredFileSystems();
  return kKinds;
}

// create [gpt | embr | volume]
void create(FrontEnd& ui, const Arguments& arguments) {
  const std::string kind = argument(arguments, 0, "");
  CreateFacts facts;
  facts.startSector = 2048;
  facts.endSector = 2048 + 6000 * 2048 - 1;
  facts.alignmentUnitSectors = 2048;
  facts.isGpt = kind == "gpt";
  facts.isEmbr = kind == "embr";
  facts.insideExtended = kind == "volume";
  facts.fileSystems = &kinds();
  CreateModel model(facts);
  bool accepted = false;
  model.create = [&] {
    if (model.name.empty() || model.fileSystemValue() == 0 || model.sizeMiB.value == 0) {
      ui.noticeBox("You must enter a Name, File System, and Size to continue.");
      return false;
    }
    return accepted = true;
  };
  ui.run(model);
  std::cout << (accepted ? "ok " : "cancel ") << model.name << ',' << model.fileSystemValue() << ','
            << model.sizeMiB.value << ',' << model.freeBeforeMiB.value << ','
            << model.freeAfterMiB.value << ',' << model.format << ',' << model.multiOs << std::endl;
}

// delete [error]
void remove(FrontEnd& ui, const Arguments& arguments) {
  DeleteFacts facts;
  facts.inError = argument(arguments, 0, "") == "error";
  facts.nameLine = "Name: LETTERS";
  facts.typeLine = "Type: Extended";
  facts.sizeLine = "Size: 800 MiB";
  facts.targetText = "Partition 4 of Example SSD 970 (S3Z9NB0K123456),\n931.5 GiB, /dev/example";
  facts.warning = "*WARNING* Volumes will also be deleted.";
  DeleteModel model(facts);
  ui.run(model);
  std::cout << (model.confirmed ? "yes " : "no ") << model.clearBootSector << model.wipePartition
            << model.secureWipe << model.shiftHeld << std::endl;
}

// format [kind...]: without one a kind that offers nothing but its clusters
void formatDialog(FrontEnd& ui, const Arguments& arguments) {
  static const FileSystemKind kPlain;
  std::vector<const FileSystemKind*> offered;
  for (const std::string& word : arguments) offered.push_back(kinds().byWord(word));
  if (offered.empty()) offered.push_back(&kPlain);
  FormatModel model(offered);
  ui.run(model);
  std::cout << (model.confirmed ? "ok " : "cancel ") << model.clusterBytes() << ','
            << model.alignForNtfs;
  if (offered.size() > 1) std::cout << ',' << model.kind().word;
  std::cout << std::endl;
}

void summary(FrontEnd& ui, const Arguments&) {
  FormatSummary summary;
  summary.name = "LETTERS";
  summary.typeName = "FAT32 LBA";
  summary.facts.storedTypeText = "FAT32   ";
  summary.sizeText = "500 MiB";
  summary.facts.clusterBytes = 4096;
  summary.facts.clusters = 127744;
  summary.report.badClusters = 3;
  summary.report.usedClusters = 1;
  summary.report.scanStopped = true;
  FormatSummaryModel model(summary);
  ui.run(model);
  std::cout << "closed" << std::endl;
}

std::string shownAs(const DriveSettingsModel& model) {
  const DriveSettingsRecord r = model.result();
  std::string text = format("%u/%u/%u ", r.cylinders, r.heads, r.sectors);
  for (const bool value :
       {r.useMbrGeometry, r.validateMbrGeometry, r.useOriginalGeometry, r.alignOnEnd != 0,
        r.alignOnEnd == kAlignOnEndByResizing, r.align1MiB, r.alignEndHs, r.alignHsOnTruncate,
        r.useGlobalSettings, model.saveAsDefault.ticked, model.wantedLimit().has_value()})
    text += value ? '1' : '0';
  return text;
}

// KIND: own, global or embr
std::unique_ptr<DriveSettingsModel> madeUpDrive(const std::string& kind) {
  DriveSettingsRecord record;
  record.driveNumber = 65536;
  record.biosGeometry = {1023, 254, 63};
  record.useGlobalSettings = kind == "global";
  const auto embr = kind == "embr" ? std::optional(EmbrPrimaries{false, 3, {}}) : std::nullopt;
  return std::make_unique<DriveSettingsModel>(record, Options{}, DriveFacts{}, embr);
}

// drive [KIND]
void driveSettings(FrontEnd& ui, const Arguments& arguments) {
  const auto model = madeUpDrive(argument(arguments, 0, "own"));
  model->store = [] { return true; };
  ui.run(*model);
  std::cout << (model->confirmed ? "ok " : "cancel ") << shownAs(*model) << std::endl;
}

// drives [NAME ...]: the names of the bus OS; the bus Image has one
void drives(FrontEnd& ui, const Arguments& arguments) {
  DriveSettingsListModel model({"OS", "Image"}, 0, [&](std::size_t bus) {
    return bus == 0 ? arguments : Arguments{"/tmp/practice.img"};
  });
  model.editDrive = [](std::size_t bus, std::size_t drive) {
    std::cout << "edit " << bus << ',' << drive << ' ' << std::flush;
  };
  ui.run(model);
  std::cout << "closed" << std::endl;
}

// settings [KIND | none]: prints the ticks of the first two pages and the drive's settings
void settings(FrontEnd& ui, const Arguments& arguments) {
  const std::string kind = argument(arguments, 0, "own");
  SettingsModel model({}, kind == "none" ? nullptr : madeUpDrive(kind), "Select a drive first.");
  std::string end = "cancel";
  model.store = [&] {
    end = "ok";
    return true;
  };
  model.help = [&] { ui.noticeBox("Here is the help.", "Help"); };
  model.editOtherDrives = [&] { ui.noticeBox("Here is the list.", "List"); };
  ui.run(model);
  for (const auto page : {generalBoxes(), geometryBoxes()}) {
    end += ' ';
    for (const OptionBox& box : page) end += model.options.*box.option ? '1' : '0';
  }
  std::cout << end << ' ' << (model.drive() ? shownAs(*model.drive()) : "-") << std::endl;
}

// help FILE [TOPIC]
void help(FrontEnd&, const Arguments& arguments) {
  HelpWindow window(argument(arguments, 0, "tallowin.hlp"));
  window.showTopic(static_cast<int>(number(argument(arguments, 1, "4"))));
  while (window.shown() && waitForEvents()) window.pass();
  std::cout << "closed" << std::endl;
}

const std::map<std::string, std::function<void(FrontEnd&, const Arguments&)>> kWindows = {
    {"message", message},   {"input", input},   {"choice", choice},       {"progress", progress},
    {"file", file},         {"create", create}, {"delete", remove},       {"format", formatDialog},
    {"summary", summary},   {"help", help},     {"drive", driveSettings}, {"drives", drives},
    {"settings", settings}, {"stuck", stuck},   {"edit", edit},
};

}  // namespace
}  // namespace tallowin

int main(int argc, char** argv) {
  using namespace tallowin;
  const Arguments arguments(argv + 1, argv + argc);
  const auto window = kWindows.find(argument(arguments, 0, ""));
  if (window == kWindows.end()) {
    std::cerr << "usage: ui_gallery NAME [ARGUMENT ...], NAME one of:";
    for (const auto& [name, open] : kWindows) std::cerr << ' ' << name;
    std::cerr << '\n';
    return 2;
  }
  catchStopSignals();
  return runFrontEnd(std::cout, [&] {
    setLook();
    const Options options;
    FltkFrontEnd ui(options);
    window->second(ui, {arguments.begin() + 1, arguments.end()});
    return 0;
  });
}
