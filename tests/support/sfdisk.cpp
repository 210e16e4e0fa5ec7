#include "support/sfdisk.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>

#include "support/disk_file.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

// sfdisk remarks on what it would do otherwise (gaps, alignment); these lines are no faults. Its
// total of sectors counts all that lies before partition 1 as allocated.
std::string faultsIn(const std::string& output) {
  std::string faults;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    const bool isRemark =
        line.find("No errors detected") != std::string::npos ||
        line.find("unallocated") != std::string::npos ||
        line.find("does not start on physical sector boundary") != std::string::npos ||
        line.starts_with("omitting empty partition") ||
        line.starts_with("Total allocated sectors") || line.starts_with("Header version") ||
        (line.starts_with("Using ") && line.ends_with("partitions.")) ||
        (line.starts_with("A total of ") && line.find("free sectors") != std::string::npos) ||
        line.ends_with(':') || line.empty();
    if (!isRemark) faults += line + "\n";
  }
  return faults;
}

u32 numberOf(const nlohmann::json& part, const std::string& imagePath) {
  const std::string node = part["node"];
  return static_cast<u32>(
      std::stoul(node.substr(node.find_first_of("0123456789", imagePath.size()))));
}

// The table as an object; null when there is none.
nlohmann::json tableOf(const ProgramResult& result) {
  // Warnings come before the object.
  const auto object = result.output.find('{');
  if (result.status != 0 || object == std::string::npos) return {};
  const auto json = nlohmann::json::parse(result.output.substr(object), nullptr, false);
  return json.is_object() ? json["partitiontable"] : nlohmann::json();
}

// "RequiredPartition LegacyBIOSBootable GUID:60,63"
u64 attributesOf(const std::string& text) {
  u64 bits = 0;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (word == "RequiredPartition") bits |= 1;
    if (word == "NoBlockIOProtocol") bits |= 2;
    if (word == "LegacyBIOSBootable") bits |= 4;
    if (!word.starts_with("GUID:")) continue;
    std::istringstream numbers(word.substr(5));
    for (std::string number; std::getline(numbers, number, ',');)
      bits |= u64{1} << std::stoul(number);
  }
  return bits;
}

SfdiskRow rowOf(const nlohmann::json& json, const std::string& imagePath) {
  SfdiskRow row;
  row.number = numberOf(json, imagePath);
  row.start = json["start"];
  row.size = json["size"];
  row.type = static_cast<u32>(std::stoul(json["type"].get<std::string>(), nullptr, 16));
  row.bootable = json.value("bootable", false);
  return row;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const SfdiskRow& row) {
  return out << row.number << ": " << row.start << "+" << row.size << " type " << std::hex
             << row.type << std::dec << (row.bootable ? " *" : "");
}

std::ostream& operator<<(std::ostream& out, const GptRow& row) {
  return out << row.number << ": " << row.start << "+" << row.size << " " << row.type << " "
             << row.uuid << " \"" << row.name << "\" " << std::hex << row.attributes << std::dec;
}

std::string makeTable(const std::string& imagePath, const std::string& script) {
  const ProgramResult result =
      runProgram({"sfdisk", "--quiet", "--no-reread", "--no-tell-kernel", imagePath}, script);
  return result.status == 0 ? ""
                            : result.output + " (status " + std::to_string(result.status) + ")";
}

MemoryDisk diskFromScript(u64 sectors, const std::string& script) {
  const TempFolder folder;
  const std::string image = folder.sparse("disk.img", sectors * 512);
  EXPECT_EQ(makeTable(image, script), "") << script;
  return loadDisk(image);
}

SfdiskTable readTable(const std::string& imagePath) {
  SfdiskTable table;
  const ProgramResult verify = runProgram({"sfdisk", "--verify", imagePath});
  table.problems = faultsIn(verify.output);
  const ProgramResult result = runProgram({"sfdisk", "-J", imagePath});
  const nlohmann::json body = tableOf(result);
  if (!body.is_object()) {
    table.problems += result.output;
    return table;
  }
  table.diskSignature =
      static_cast<u32>(std::stoul(body.value("id", std::string("0")), nullptr, 16));
  if (body.contains("partitions"))
    for (const auto& row : body["partitions"]) table.rows.push_back(rowOf(row, imagePath));
  return table;
}

SfdiskTable readTable(MemoryDisk& disk) {
  const TempFolder folder;
  const std::string image = folder.file("disk.img");
  storeDisk(disk, image);
  if (disk.sectorSize() == 512) return readTable(image);
  const ProgramResult loop =
      runProgram({"losetup", "--find", "--show", "--read-only", "--sector-size",
                  std::to_string(disk.sectorSize()), image});
  if (loop.status != 0) return {loop.output, 0, {}};
  const std::string device = loop.output.substr(0, loop.output.find('\n'));
  SfdiskTable table = readTable(device);
  static_cast<void>(runProgram({"losetup", "--detach", device}));
  return table;
}

std::vector<GptRow> readGpt(const std::string& imagePath) {
  const ProgramResult result = runProgram({"sfdisk", "-J", imagePath});
  const nlohmann::json table = tableOf(result);
  std::vector<GptRow> rows;
  EXPECT_TRUE(table.is_object() && table["label"] == "gpt") << result.output;
  if (!table.contains("partitions")) return rows;
  for (const auto& part : table["partitions"])
    rows.push_back({numberOf(part, imagePath), part["start"], part["size"], part["type"],
                    part["uuid"], part.value("name", ""), attributesOf(part.value("attrs", ""))});
  return rows;
}

std::string gptProblems(const std::string& imagePath) {
  std::string problems;
  const ProgramResult sgdisk = runProgram({"sgdisk", "-v", imagePath});
  if (sgdisk.output.find("No problems found") == std::string::npos) problems += sgdisk.output;
  const ProgramResult sfdisk = runProgram({"sfdisk", "--verify", imagePath});
  if (sfdisk.status != 0 || sfdisk.output.find("No errors detected") == std::string::npos)
    problems += sfdisk.output;
  return problems;
}

}  // namespace tallowin
