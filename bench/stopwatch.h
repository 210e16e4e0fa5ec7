// Timing for benchmarks that compare ways of doing the same work.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace tallowin {

struct Contender {
  std::string name;
  std::function<bool()> work;
};

// Runs the contenders in turn, `rounds` times, and prints the median of each with its ratio to
// the first. Taking turns spreads what else the machine does over all of them.
inline bool compare(const char* title, double mebibytes, int rounds,
                    const std::vector<Contender>& contenders) {
  std::vector<std::vector<double>> seconds(contenders.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < contenders.size(); ++i) {
      const auto start = std::chrono::steady_clock::now();
      if (!contenders[i].work()) {
        std::printf("%s: %s failed\n", title, contenders[i].name.c_str());
        return false;
      }
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      seconds[i].push_back(took.count());
    }
  }
  std::printf("%s\n", title);
  double first = 0;
  for (std::size_t i = 0; i < contenders.size(); ++i) {
    std::sort(seconds[i].begin(), seconds[i].end());
    const double median = seconds[i][seconds[i].size() / 2];
    if (i == 0) first = median;
    std::printf("  %-44s %7.3f s %8.0f MiB/s   %.2f\n", contenders[i].name.c_str(), median,
                mebibytes / median, median / first);
  }
  return true;
}

}  // namespace tallowin
