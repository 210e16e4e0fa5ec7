#include "cli/ctl.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace tallowin {

std::vector<std::string> Ctl::command(std::vector<std::string> words) const {
  words.insert(words.begin(), {"env", "TALLOWIN_HOME=" + home_.path(), TALLOWINCTL});
  if (devices_ == Devices::hidden) words.push_back("--nd");
  return words;
}

ProgramResult Ctl::run(std::vector<std::string> words) {
  return runProgram(command(std::move(words)));
}

void Ctl::expectDone(std::vector<std::string> words) {
  const bool asks = words[0] != "table" && words[0] != "settings" && words[0] != "list";
  if (asks && std::ranges::find(words, "--yes") == words.end()) words.push_back("--yes");
  const ProgramResult result = run(words);
  EXPECT_EQ(result.status, 0) << testing::PrintToString(words) << result.output;
}

Ctl::Answer Ctl::json(std::vector<std::string> words) {
  words.push_back("--json");
  std::vector<std::string> shell = command(std::move(words));
  shell.insert(shell.begin(), {"sh", "-c", "exec \"$@\" 2>/dev/null", "sh"});
  const ProgramResult result = runProgram(shell);
  Answer answer{result.status, {}};
  answer.json.Parse(result.output.c_str());
  EXPECT_FALSE(answer.json.HasParseError()) << result.output;
  if (!answer.json.IsObject()) answer.json.SetObject();
  return answer;
}

std::string fileHash(const std::string& path) { return runProgram({"sha256sum", path}).output; }

std::vector<SfdiskRow> rowsOf(const rapidjson::Document& listing) {
  std::vector<SfdiskRow> rows;
  if (!listing.HasMember("rows")) return rows;
  for (const auto& row : listing["rows"].GetArray())
    if (std::string(row["kind"].GetString()) != "free")
      rows.push_back({row["number"].GetUint(), row["start"].GetUint64(), row["sectors"].GetUint64(),
                      row["type"].GetUint(), row["active"].GetBool()});
  std::ranges::sort(rows, {}, &SfdiskRow::number);
  return rows;
}

std::vector<SfdiskRow> rowsByCtl(Ctl& ctl, const std::string& path) {
  const Ctl::Answer answer = ctl.json({"list", path});
  EXPECT_EQ(answer.status, 0);
  return rowsOf(answer.json);
}

SfdiskRow sfdiskRow(const std::string& path, u32 number) {
  for (const SfdiskRow& row : readTable(path).rows)
    if (row.number == number) return row;
  return {};
}

}  // namespace tallowin
