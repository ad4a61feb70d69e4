#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "Benchmarks.hpp"
#include "Report.hpp"

using namespace molvane::bench;

namespace {

struct Benchmark {
  std::string name;
  std::function<std::vector<Comparison>()> run;
};

const std::vector<Benchmark>& benchmarks() {
  static const std::vector<Benchmark> all = {{"accounts", benchAccounts},
                                             {"applications", benchApplications},
                                             {"child-process", benchChildProcess},
                                             {"connection", benchConnection},
                                             {"core", benchCore},
                                             {"daemon", benchDaemon},
                                             {"devices", benchDevices},
                                             {"prompts", benchPrompts},
                                             {"trees", benchTrees}};
  return all;
}

std::vector<Benchmark> chosen(const std::vector<std::string>& names) {
  if (names.empty()) return benchmarks();
  std::vector<Benchmark> result;
  for (const std::string& name : names) {
    const auto found = std::find_if(benchmarks().begin(), benchmarks().end(),
                                    [&](const Benchmark& benchmark) { return benchmark.name == name; });
    if (found == benchmarks().end()) throw std::invalid_argument("no benchmark is called " + name);
    result.push_back(*found);
  }
  return result;
}

}  // namespace

// molvane-bench [NAME...]: runs the named benchmarks, or all, and prints one table. Exit status 1 says that a
// target was missed, 2 that something could not be measured.
int main(int argc, char** argv) {
  try {
    std::vector<Comparison> rows;
    bool allMeasured = true;
    for (const Benchmark& benchmark : chosen({argv + 1, argv + argc})) {
      std::cerr << "running " << benchmark.name << "...\n";
      try {
        const std::vector<Comparison> measured = benchmark.run();
        rows.insert(rows.end(), measured.begin(), measured.end());
      } catch (const std::exception& error) {
        std::cerr << "molvane-bench: " << benchmark.name << ": " << error.what() << '\n';
        allMeasured = false;
      }
    }
    printTable(std::cout, rows);
    if (!allMeasured) return 2;
    return std::all_of(rows.begin(), rows.end(), [](const Comparison& row) { return row.met(); }) ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "molvane-bench: " << error.what() << '\n';
    return 2;
  }
}
