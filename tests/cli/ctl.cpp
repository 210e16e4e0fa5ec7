#include "cli/ctl.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>

#include "base/crc32.h"
#include "cli/tallowinctl.h"
#include "support/disk_file.h"

namespace tallowin {
namespace {

constexpr unsigned kLongestSeconds = 120;  // then it hangs, and is ended

}  // namespace

std::vector<std::string> Ctl::command(std::vector<std::string> words) const {
  words.insert(words.begin(), {"env", "TALLOWIN_HOME=" + home_.path(), TALLOWINCTL});
  if (devices_ == Devices::hidden) words.push_back("--nd");
  return words;
}

ProgramResult Ctl::runInChild(std::vector<std::string> words, Errors errors) const {
  words.insert(words.begin(), TALLOWINCTL);
  if (devices_ == Devices::hidden) words.push_back("--nd");
  std::array<int, 2> out{};
  if (::pipe2(out.data(), O_CLOEXEC) != 0) return {};
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(kLongestSeconds);
    const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ::dup2(nothing, STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    ::dup2(errors == Errors::shown ? out[1] : nothing, STDERR_FILENO);
    ::setenv("TALLOWIN_HOME", home_.path().c_str(), 1);
    ::_exit(tallowinctl(words, std::make_unique<Host>()));
  }
  ::close(out[1]);
  return collect(child, out[0]);
}

ProgramResult Ctl::run(std::vector<std::string> words) {
  return runInChild(std::move(words), Errors::shown);
}

void Ctl::expectDone(std::vector<std::string> words) {
  const bool asks = words[0] != "table" && words[0] != "settings" && words[0] != "list";
  if (asks && std::ranges::find(words, "--yes") == words.end()) words.push_back("--yes");
  const ProgramResult result = run(words);
  EXPECT_EQ(result.status, 0) << testing::PrintToString(words) << result.output;
}

Ctl::Answer Ctl::json(std::vector<std::string> words) {
  words.push_back("--json");
  const ProgramResult result = runInChild(std::move(words), Errors::dropped);
  Answer answer{result.status, {}};
  answer.json.Parse(result.output.c_str());
  EXPECT_FALSE(answer.json.HasParseError()) << result.output;
  if (!answer.json.IsObject()) answer.json.SetObject();
  return answer;
}

std::string fileHash(const std::string& path) {
  if (!std::filesystem::is_regular_file(path)) return runProgram({"sha256sum", path}).output;
  std::string pieces;
  MemoryDisk disk = loadDisk(path);
  disk.forEachData([&](u64 offset, std::span<const u8> bytes) {
    if (std::ranges::any_of(bytes, [](u8 byte) { return byte != 0; }))
      pieces += std::to_string(offset) + ":" + std::to_string(crc32(bytes)) + " ";
  });
  return pieces;
}

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
