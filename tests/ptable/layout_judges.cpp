#include "ptable/layout_judges.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <sstream>

#include "support/disk_file.h"
#include "support/loop_device.h"
#include "support/oracle.h"
#include "support/temp_folder.h"

namespace tallowin {
namespace {

// The disks as files or loop devices, for the time of the questions.
class Bench {
 public:
  explicit Bench(const std::vector<Layout*>& layouts) {
    for (Layout* layout : layouts) {
      std::string path = folder_.file(std::to_string(paths_.size()) + ".img");
      storeDisk(layout->disk, path);
      if (layout->disk.sectorSize() != 512)
        path = loops_.emplace_back(std::make_unique<LoopDevice>(path, layout->disk.sectorSize()))
                   ->path();
      paths_.push_back(path);
    }
  }

  std::size_t count() const { return paths_.size(); }
  // Empty when there is no loop device to be had.
  const std::string& path(std::size_t i) const { return paths_[i]; }
  std::vector<std::string> paths() const {
    std::vector<std::string> all = paths_;
    std::erase(all, "");
    return all;
  }
  // The index of a path; count() for none.
  std::size_t find(std::string_view path) const {
    return static_cast<std::size_t>(std::ranges::find(paths_, path) - paths_.begin());
  }

 private:
  TempFolder folder_;
  std::vector<std::unique_ptr<LoopDevice>> loops_;
  std::vector<std::string> paths_;
};

template <typename Use>
void forEachLine(const std::string& text, Use use) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) use(line);
}

// The two numbers that a row of a list has at the marks of the format (two %llu).
std::optional<SectorRun> runIn(const std::string& line, const char* format) {
  unsigned long long first = 0;
  unsigned long long last = 0;
  if (std::sscanf(line.c_str(), format, &first, &last) != 2) return std::nullopt;
  return SectorRun{first, last + 1};
}

void askSfdisk(const Bench& bench, std::vector<Judgement>& answers) {
  std::vector<std::string> command = {"sfdisk", "-l", "-o", "Start,End"};
  for (const std::string& path : bench.paths()) command.push_back(path);
  std::size_t now = bench.count();
  forEachLine(runProgram(command).output, [&](const std::string& line) {
    if (line.starts_with("Disk /")) {
      const std::size_t at = bench.find(line.substr(5, line.find(':') - 5));
      if (at != bench.count()) now = at;
    } else if (const auto run = runIn(line, "%llu %llu"); run && now != bench.count()) {
      answers[now].rows["sfdisk"].push_back(*run);
    }
  });
}

// parted stops at the first disk that it does not understand, and is asked about the rest again.
// Where it ends by an assertion of its own, the answers before that are lost with its buffers: then
// the first disk is asked about alone.
void askParted(const Bench& bench, std::vector<Judgement>& answers) {
  const std::vector<std::string> paths = bench.paths();
  for (std::size_t first = 0; first < paths.size();) {
    // By lines: else its warnings come in the middle of one.
    std::vector<std::string> command = {"stdbuf",     "-oL",  "parted", "-sm",
                                        paths[first], "unit", "s",      "print"};
    const std::size_t wordsForOneDisk = command.size();
    for (std::size_t i = first + 1; i < paths.size(); ++i)
      command.insert(command.end(), {"select", paths[i], "print"});
    std::string output = runProgram(command).output;
    if (output.find("Assertion (") != std::string::npos) {
      command.resize(wordsForOneDisk);
      output = runProgram(command).output;
    }
    std::size_t now = bench.find(paths[first]);
    ++first;
    forEachLine(output, [&](const std::string& line) {
      if (line == "Using " + (first < paths.size() ? paths[first] : "")) {
        now = bench.find(paths[first++]);
      } else if (const auto run = runIn(line, "%*u:%llus:%llus:")) {
        answers[now].rows["parted"].push_back(*run);
      }
    });
  }
}

// partx counts in 512 bytes on every disk.
void askPartx(const Bench& bench, const std::vector<Layout*>& layouts,
              std::vector<Judgement>& answers) {
  for (std::size_t i = 0; i < bench.count(); ++i) {
    if (bench.path(i).empty()) continue;
    const u32 unit = layouts[i]->disk.sectorSize() / 512;
    const std::string output =
        runProgram({"partx", "-s", "-g", "-o", "START,END", bench.path(i)}).output;
    forEachLine(output, [&](const std::string& line) {
      if (const auto run = runIn(line, "%llu %llu"))
        answers[i].rows["partx"].push_back({run->start / unit, run->end / unit});
    });
  }
}

void askSgdisk(const Bench& bench, std::size_t i, Judgement& answer) {
  if (bench.path(i).empty()) return;
  forEachLine(runProgram({"sgdisk", "-p", bench.path(i)}).output, [&](const std::string& line) {
    if (const auto run = runIn(line, "%*u %llu %llu")) answer.rows["sgdisk"].push_back(*run);
  });
}

}  // namespace

std::vector<Judgement> judge(const std::vector<Layout*>& layouts) {
  std::vector<Judgement> answers(layouts.size());
  const Bench bench(layouts);
  if (bench.paths().empty()) return answers;
  askSfdisk(bench, answers);
  askPartx(bench, layouts, answers);
  for (std::size_t i = 0; i < layouts.size(); ++i)
    if (layouts[i]->hasGpt) askSgdisk(bench, i, answers[i]);
  askParted(bench, answers);
  return answers;
}

}  // namespace tallowin
