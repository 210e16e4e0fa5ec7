// Runs tallowinctl as a script would: in a child of the test, which costs less than a new program.
#pragma once

#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "support/oracle.h"
#include "support/sfdisk.h"
#include "support/temp_folder.h"

namespace tallowin {

// One program folder a test: settings and kept tables of the machine play no part.
class Ctl {
 public:
  // Targets below /dev are refused while devices are hidden, and no device is opened.
  enum class Devices { hidden, shown };
  explicit Ctl(Devices devices = Devices::hidden) : devices_(devices) {}

  // Both outputs together.
  ProgramResult run(std::vector<std::string> words);
  // Fails the test unless the command succeeds; its questions are answered with yes.
  void expectDone(std::vector<std::string> words);
  // --json; the document is what stood on standard output, alone.
  struct Answer {
    int status = -1;
    rapidjson::Document json;
  };
  Answer json(std::vector<std::string> words);

  // The same as a program of its own, with its name and folder.
  std::vector<std::string> command(std::vector<std::string> words) const;

  const TempFolder& home() const { return home_; }

 private:
  enum class Errors { shown, dropped };
  ProgramResult runInChild(std::vector<std::string> words, Errors errors) const;

  Devices devices_;
  TempFolder home_;
};

// The same for the same bytes; holes of a file are zeros.
std::string fileHash(const std::string& path);

// The used rows of `list`, by number, in the form in which sfdisk is asked.
std::vector<SfdiskRow> rowsOf(const rapidjson::Document& listing);
std::vector<SfdiskRow> rowsByCtl(Ctl& ctl, const std::string& path);
// One row as sfdisk sees it; all zero when there is none.
SfdiskRow sfdiskRow(const std::string& path, u32 number);

}  // namespace tallowin
