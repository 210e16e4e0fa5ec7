// The state of the file dialog, without a widget.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "ops/file_source.h"
#include "ops/front_end.h"

namespace tallowin {

// Walks the directories of the host or of a partition by absolute paths; the process's current
// directory stays as it is.
class FileChooser {
 public:
  using Row = ListedFile;

  enum class Outcome {
    nothing,       // leave everything as it is
    listChanged,   // another directory or pattern
    notFound,      // "File not found."
    askOverwrite,  // the file exists; the dialog ends if the user agrees
    chosen,
  };

  FileChooser(const FileChoice& choice, bool isoDates);

  const std::string& title() const { return title_; }
  const std::string& directory() const { return directory_; }
  const std::string& initialName() const { return initialName_; }
  // ".." first, then directories, then matching files, each by name without regard to case.
  const std::vector<Row>& rows() const { return rows_; }
  std::string sizeText(const Row& row) const;
  std::string dateText(const Row& row) const;
  std::string locationText() const;  // the directory, followed by the patterns
  std::string freeSpaceText();

  // A typed or chosen name.
  Outcome enter(const std::string& name);
  // The full name; valid after `chosen` and `askOverwrite`.
  const std::string& result() const { return result_; }
  // Deletes a file. Why that was not possible; empty when it is gone, or when it was told.
  std::string remove(const std::string& name);

 private:
  std::string absolute(const std::string& name) const;
  bool isDirectory(const std::string& path);
  Failure readRows(const std::string& directory, const std::vector<std::string>& patterns,
                   std::vector<Row>& rows);
  Outcome goTo(const std::string& directory, const std::vector<std::string>& patterns);

  HostFileSource host_;
  FileSource& source_;
  u32 flags_;
  bool isoDates_;
  std::string title_;
  std::string directory_;
  std::string initialName_;
  std::vector<std::string> patterns_;
  std::vector<Row> rows_;
  std::string result_;
};

// 12,345 and two blanks below 1 MiB, else like 1.5MB, with powers of 1024.
std::string fileSizeText(u64 bytes);
// Like 12.5GiB Free.
std::string freeSpaceText(u64 bytes);
// "%2u/%02u/%04u %2u:%02u %cm", or by ISO 8601 "%04u-%02u-%02u %02u:%02u". Local time.
std::string fileDateText(std::time_t time, bool iso);

}  // namespace tallowin
