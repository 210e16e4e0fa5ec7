// What operations that were killed have left: their journals, and which disks those belong to.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "move/journal_file.h"
#include "ops/operation_context.h"
#include "ops/placement.h"
#include "ptable/drive.h"

namespace tallowin {

// What a journal says of an operation: lines of key=value.
class WorkRecord {
 public:
  WorkRecord() = default;
  explicit WorkRecord(std::string text) : text_(std::move(text)) {}

  void set(const std::string& key, const std::string& value);
  void set(const std::string& key, u64 value) { set(key, std::to_string(value)); }
  // Empty, or 0, where the record does not have it.
  std::string text(const std::string& key) const;
  u64 number(const std::string& key) const;

  const std::string& lines() const { return text_; }

 private:
  std::string text_;
};

struct UnfinishedWork {
  std::string journalPath;
  std::string linkPath;     // where another file leads to the journal; else empty
  bool isUnderWay = false;  // another program is at it
  bool isMissing = false;   // its journal lay on another disk
  std::string operation;
  std::string what;       // a sentence: what was being done, to which partition of which disk
  std::string startedAt;  // local date and time
  u64 startSector = 0;    // of the partition, as the table had it
};

// The journal of an operation that is under way, or was. It is made in the folder for journals, or
// where the options say; a file in that folder leads there then.
class WorkJournal {
 public:
  // Durable when it returns, with what tells the drive's disk from others. `operation` is the word
  // that it is found by again, `what` a sentence for the user: "Resizing partition 1 ...".
  // journalFailed, with the reason; unfinishedWork: the disk has one already.
  static Failure begin(const OperationContext& context, Drive& drive, const std::string& operation,
                       const std::string& what, WorkRecord record, std::span<const u8> attachment,
                       std::span<const u8> state, std::unique_ptr<WorkJournal>& journal);
  // Of an operation that is not under way any more. lockNotMade: it is; journalFailed, corrupt.
  static Failure reopen(const UnfinishedWork& work, std::unique_ptr<WorkJournal>& journal);

  JournalFile& file() { return *file_; }
  const WorkRecord& record() const { return record_; }
  const std::string& path() const { return path_; }
  // The operation is finished or undone, and all of it is on the medium: the journal goes.
  Failure end();

 private:
  WorkJournal(std::string path, std::string link)
      : path_(std::move(path)), link_(std::move(link)) {}

  std::string path_;
  std::string link_;  // empty when the journal lies in the folder for journals
  std::unique_ptr<JournalFile> file_;
  WorkRecord record_;
};

// Of this disk; nothing is the rule. A journal that was begun and not made is taken away.
std::optional<UnfinishedWork> unfinishedWorkOn(const ProgramFolders& folders, Drive& drive);

// The sectors of the disk that the operation changes, which nothing else may use.
void setArea(const SectorExtent& area, WorkRecord& record);
SectorExtent areaOf(const WorkRecord& record);

// For the user: what is unfinished, and how it is ended.
std::string unfinishedText(const UnfinishedWork& work);

}  // namespace tallowin
