#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Benchmarks.hpp"
#include "Measuring.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane::bench {
namespace {

namespace fs = std::filesystem;

constexpr int kFolders = 200;
constexpr int kFilesEach = 99;  // with the folders themselves: 20,000 entries
constexpr int kWarmRounds = 21;
constexpr int kColdRounds = 5;
constexpr int kRemovalRounds = 9;

const std::string& driver() {
  static const std::string path = fs::read_symlink("/proc/self/exe").parent_path() / "molvane-bench-tree";
  return path;
}

Comparison compareSizing(const std::string& tree, bool cold) {
  const std::string state = cold ? "cold" : "warm";
  const auto prepare = [cold] {
    if (cold) forgetCaches();
  };
  const auto ours = [&] { runProgram(driver(), {"size", tree}); };
  const auto du = [&] { runProgram("/usr/bin/du", {"-s", "--apparent-size", tree}); };
  return compareInTurns(
      {.name = "size of 20,000 entries, " + state + " / du -s --apparent-size", .unit = "ms", .atMost = 1.0},
      {.counted = cold ? kColdRounds : kWarmRounds}, {ours, prepare}, {du, prepare});
}

Comparison compareRemoval(const std::string& tree) {
  const auto prepare = [&] {
    makeFileTree(tree, kFolders, kFilesEach);
    sync();  // neither side is to pay for writing it out
  };
  const auto ours = [&] { runProgram(driver(), {"remove", tree}); };
  const auto rm = [&] { runProgram("/bin/rm", {"-rf", tree}); };
  return compareInTurns({.name = "remove 20,000 entries / rm -rf", .unit = "ms", .atMost = 1.0},
                        {.counted = kRemovalRounds}, {ours, prepare}, {rm, prepare});
}

}  // namespace

std::vector<Comparison> benchTrees() {
  const TemporaryFolder scratch(kDiskFolders);
  const std::string tree = scratch.path() + "/measured";
  makeFileTree(tree, kFolders, kFilesEach);
  std::vector<Comparison> rows{compareSizing(tree, false)};
  if (geteuid() == 0) rows.push_back(compareSizing(tree, true));
  rows.push_back(compareRemoval(scratch.path() + "/removed"));
  return rows;
}

}  // namespace molvane::bench
