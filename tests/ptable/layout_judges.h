// What independent programs see on a disk, asked for many disks at a time.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "ptable/layouts.h"

namespace tallowin {

struct Judgement {
  // By program, in the order in which it lists them: all rows, containers and empty ones too.
  std::map<std::string, std::vector<SectorRun>> rows;
};

// One answer for each disk. Disks with large sectors need loop devices; without these nothing
// is seen on them.
std::vector<Judgement> judge(const std::vector<Layout*>& layouts);

}  // namespace tallowin
