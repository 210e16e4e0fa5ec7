#include "ops/unfinished_work.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "base/guid.h"
#include "base/text.h"
#include "files/host_file.h"
#include "files/ini_text.h"
#include "ops/target_text.h"
#include "settings/program_folders.h"

namespace tallowin {
namespace {

namespace fs = std::filesystem;

constexpr const char* kEnding = ".journal";
constexpr const char* kLinkEnding = ".link";  // says where the journal lies, and has its record
constexpr u32 kMostJournals = 1000;
constexpr auto kEnded = std::to_array<u8>({'E', 'N', 'D', 'E', 'D'});  // the state of a journal

std::string journalFolder(const ProgramFolders& folders) { return folders.state + "/journal"; }

// What the names lead to, links resolved; the name itself when that cannot be found out.
std::string realPath(const std::string& path) {
  std::error_code failure;
  const fs::path real = fs::weakly_canonical(path, failure);
  return failure ? path : real.string();
}

std::string timeNow(Host& host) {
  const auto now = static_cast<std::time_t>(host.secondsSinceEpoch());
  std::tm parts = {};
  char text[32] = "";
  if (::localtime_r(&now, &parts)) std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M", &parts);
  return text;
}

void describeDisk(Drive& drive, WorkRecord& record) {
  DiskDevice& disk = drive.disk();
  record.set("disk", describeDisk(disk));
  record.set("path", realPath(disk.traits().path));
  record.set("model", disk.model());
  record.set("serial", disk.serial());
  record.set("sectors", disk.sectorCount().value_or(0));
  record.set("sectorSize", disk.sectorSize());
  record.set("signature", drive.diskSignature());
  record.set("guid", guidText(drive.diskGuid()));
}

// Whether the record is of this disk. A path names another disk tomorrow, so what is in its table
// counts too, as long as that can be read.
bool isOfDisk(const WorkRecord& record, Drive& drive) {
  DiskDevice& disk = drive.disk();
  if (record.number("sectors") != disk.sectorCount().value_or(0) ||
      record.number("sectorSize") != disk.sectorSize())
    return false;
  const std::string serial = disk.serial();
  const bool isSameDisk =
      serial.empty() ? record.text("path") == realPath(disk.traits().path)
                     : record.text("serial") == serial && record.text("model") == disk.model();
  const bool isSameTable =
      drive.table().isUnread() || (record.number("signature") == drive.diskSignature() &&
                                   record.text("guid") == guidText(drive.diskGuid()));
  return isSameDisk && isSameTable;
}

std::vector<std::string> journalPaths(const ProgramFolders& folders) {
  std::vector<std::string> paths;
  std::error_code failure;
  for (const auto& entry : fs::directory_iterator(journalFolder(folders), failure)) {
    const fs::path ending = entry.path().extension();
    if (ending == kEnding || ending == kLinkEnding) paths.push_back(entry.path().string());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

// A name that no journal has yet.
std::string newName(const ProgramFolders& folders, const char* ending) {
  for (u32 number = 1; number < kMostJournals; ++number) {
    std::string path = journalFolder(folders) + format("/%u", number) + ending;
    std::error_code ignored;
    if (!fs::exists(fs::symlink_status(path, ignored))) return path;
  }
  return {};
}

bool isLink(const std::string& path) { return fs::path(path).extension() == kLinkEnding; }

std::optional<WorkRecord> readLink(const std::string& path) {
  std::string text;
  if (loadTextFile(path, text, kMiB)) return std::nullopt;
  return WorkRecord(text);
}

UnfinishedWork workOf(const std::string& path, const WorkRecord& record) {
  UnfinishedWork work;
  work.journalPath = path;
  work.operation = record.text("operation");
  work.what = record.text("what");
  work.startedAt = record.text("started");
  work.startSector = record.number("start");
  return work;
}

// A journal in its file. `isOver`: it was never begun, or has been ended, and is of no use.
struct FoundJournal {
  std::optional<UnfinishedWork> work;  // nothing: it is none of this disk, or cannot be read
  bool isOver = false;
};

// What lies where a link leads may be somebody's file by now.
enum class Owned : u8 { no, yes };
FoundJournal workInFile(const std::string& path, Drive& drive, Owned owned) {
  std::unique_ptr<JournalStorage> storage;
  std::unique_ptr<JournalFile> file;
  const Failure unopened = JournalStorageFile::open(path, storage);
  const bool isUnderWay = unopened == Error::lockNotMade;
  if (unopened && !isUnderWay) return {};
  const Failure unread = JournalFile::open(std::move(storage), file);
  const bool wasNotBegun = unread == Error::notThisFormat && owned == Owned::yes;
  const bool isOver = wasNotBegun || (!unread && std::ranges::equal(file->state(), kEnded));

  if (isOver && !isUnderWay) static_cast<void>(JournalStorageFile::remove(path));
  if (unread || isOver) return {std::nullopt, isOver && !isUnderWay};
  const WorkRecord record(file->description());
  if (!isOfDisk(record, drive)) return {};
  UnfinishedWork work = workOf(path, record);
  work.isUnderWay = isUnderWay;
  return {work, false};
}

std::optional<UnfinishedWork> workAt(const std::string& path, Drive& drive) {
  if (!isLink(path)) return workInFile(path, drive, Owned::yes).work;
  const std::optional<WorkRecord> link = readLink(path);
  if (!link || !isOfDisk(*link, drive)) return std::nullopt;
  FoundJournal found = workInFile(link->text("journal"), drive, Owned::no);
  if (found.isOver) {
    static_cast<void>(JournalStorageFile::remove(path));
    return std::nullopt;
  }
  UnfinishedWork work = found.work.value_or(workOf(link->text("journal"), *link));
  work.isMissing = !found.work;
  work.linkPath = path;
  return work;
}

}  // namespace

// --- WorkRecord

void WorkRecord::set(const std::string& key, const std::string& value) {
  std::string line = value;
  std::replace(line.begin(), line.end(), '\n', ' ');
  std::replace(line.begin(), line.end(), '\r', ' ');
  setValue(text_, kNoCapacityLimit, line, std::nullopt, key + "=");
}

std::string WorkRecord::text(const std::string& key) const {
  return std::string(getValue(text_, std::nullopt, key + "=").value_or(std::string_view()));
}

u64 WorkRecord::number(const std::string& key) const {
  u64 value = 0;
  return parseDecimal(text(key), value) ? value : 0;
}

// --- WorkJournal

Failure WorkJournal::begin(const OperationContext& context, Drive& drive,
                           const std::string& operation, const std::string& what, WorkRecord record,
                           std::span<const u8> attachment, std::span<const u8> state,
                           std::unique_ptr<WorkJournal>& journal) {
  if (unfinishedWorkOn(context.folders, drive)) return Error::unfinishedWork;
  record.set("operation", operation);
  record.set("what", what);
  record.set("started", timeNow(context.host));
  describeDisk(drive, record);
  if (const Failure failed = makeFolders(journalFolder(context.folders)))
    return failed.as(Error::journalFailed);
  const std::string& wanted = context.options.journalFile;
  const std::string path = wanted.empty() ? newName(context.folders, kEnding) : realPath(wanted);
  const std::string link = wanted.empty() ? std::string() : newName(context.folders, kLinkEnding);
  std::unique_ptr<WorkJournal> made(new WorkJournal(path, link));
  std::unique_ptr<JournalStorage> storage;
  if (const Failure failed = JournalStorageFile::create(path, storage))
    return failed.as(Error::journalFailed);
  record.set("journal", path);
  Failure failed;
  // Where there is a link there was a whole journal; before that nothing is changed.
  failed = JournalFile::create(std::move(storage), record.lines(), attachment, state, made->file_);
  if (!failed && !link.empty()) failed = replaceFileDurably(link, record.lines());
  if (failed) {
    static_cast<void>(made->end());
    return failed.as(Error::journalFailed);
  }
  made->record_ = std::move(record);
  journal = std::move(made);
  return {};
}

Failure WorkJournal::reopen(const UnfinishedWork& work, std::unique_ptr<WorkJournal>& journal) {
  std::unique_ptr<WorkJournal> opened(new WorkJournal(work.journalPath, work.linkPath));
  std::unique_ptr<JournalStorage> storage;
  if (const Failure failed = JournalStorageFile::open(work.journalPath, storage))
    return failed == Error::lockNotMade ? failed : failed.as(Error::journalFailed);
  if (const Failure failed = JournalFile::open(std::move(storage), opened->file_)) return failed;
  opened->record_ = WorkRecord(opened->file_->description());
  journal = std::move(opened);
  return {};
}

// It says so before it goes: one that cannot be removed must never be played.
Failure WorkJournal::end() {
  if (file_) static_cast<void>(file_->setState(kEnded));
  Failure failed;
  // Without its journal a link would be taken for one that has lost it.
  if (!link_.empty()) failed = JournalStorageFile::remove(link_);
  if (const Failure left = JournalStorageFile::remove(path_); !failed) failed = left;
  return failed ? failed.as(Error::journalFailed) : failed;
}

// ---

std::optional<UnfinishedWork> unfinishedWorkOn(const ProgramFolders& folders, Drive& drive) {
  for (const std::string& path : journalPaths(folders))
    if (auto work = workAt(path, drive)) return work;
  return std::nullopt;
}

void setArea(const SectorExtent& area, WorkRecord& record) {
  record.set("areaStart", area.startSector);
  record.set("areaEnd", area.endSector);
}

SectorExtent areaOf(const WorkRecord& record) {
  return {record.number("areaStart"), record.number("areaEnd")};
}

std::string unfinishedText(const UnfinishedWork& work) {
  if (work.isUnderWay)
    return "Another program is at work on this disk:\n" + work.what + "\nWait until it has ended.";
  if (work.isMissing)
    return "An operation on this disk was cut short:\n" + work.what + "\nIts journal " +
           work.journalPath + " is not there.\nMount the disk that holds it and try again.";
  return format(
      "An operation on this disk was cut short (begun %s):\n%s\n"
      "Continue it or undo it before anything else is changed.",
      work.startedAt.c_str(), work.what.c_str());
}

}  // namespace tallowin
