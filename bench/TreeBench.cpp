#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Benchmarks.hpp"
#include "Platform/ChildProcess.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Report.hpp"

namespace molvane::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kFolders = 200;
constexpr int kFilesEach = 99;  // with the folders themselves: 20,000 entries
constexpr int kWarmRounds = 21;
constexpr int kColdRounds = 5;
constexpr int kRemovalRounds = 9;

// A scratch folder on the disk, gone at the end.
class Scratch {
 public:
  Scratch() : path_("/var/tmp/molvane-bench-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no scratch folder");
  }
  ~Scratch() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  [[nodiscard]] std::string makeTree(const std::string& name) const {
    const std::string tree = path_ + "/" + name;
    for (int i = 0; i < kFolders; ++i) {
      const std::string folder = tree + "/" + std::to_string(i);
      fs::create_directories(folder);
      for (int k = 0; k < kFilesEach; ++k) std::ofstream(folder + "/file" + std::to_string(k)) << name;
    }
    return tree;
  }

 private:
  std::string path_;
};

double millisecondsOf(const std::string& executable, const std::vector<std::string>& arguments) {
  const Clock::time_point start = Clock::now();
  ChildProcess process({executable, arguments, ChildProcess::StandardInput::null});
  const auto deadline = Clock::now() + std::chrono::minutes(2);
  std::string output;
  const auto keep = [&output](std::string_view piece) { output += piece; };
  const bool ended = process.pump(deadline, keep) && process.drain(deadline, keep);
  const std::chrono::duration<double, std::milli> span = Clock::now() - start;
  if (!ended || process.terminationStatus() != 0) throw std::runtime_error(executable + " failed: " + output);
  return span.count();
}

const std::string& driver() {
  static const std::string path = fs::read_symlink("/proc/self/exe").parent_path() / "molvane-bench-tree";
  return path;
}

void forgetCaches() {
  sync();
  const FileDescriptor knob(open("/proc/sys/vm/drop_caches", O_WRONLY | O_CLOEXEC));
  if (!knob || write(knob.get(), "3", 1) != 1) throw std::runtime_error("cold figures need root");
}

Comparison compareSizing(const std::string& tree, bool cold) {
  std::vector<double> ours;
  std::vector<double> peer;
  for (int round = 0; round < (cold ? kColdRounds : kWarmRounds); ++round) {
    if (cold) forgetCaches();
    ours.push_back(millisecondsOf(driver(), {"size", tree}));
    if (cold) forgetCaches();
    peer.push_back(millisecondsOf("/usr/bin/du", {"-s", "--apparent-size", tree}));
  }
  return {
      .name = std::string("size of 20,000 entries, ") + (cold ? "cold" : "warm") + " / du -s --apparent-size",
      .ours = median(ours),
      .peer = median(peer),
      .unit = "ms",
      .atMost = 1.0};
}

Comparison compareRemoval(const Scratch& scratch) {
  std::vector<double> ours;
  std::vector<double> peer;
  for (int round = 0; round < kRemovalRounds; ++round) {
    const std::string first = scratch.makeTree("a");
    const std::string second = scratch.makeTree("b");
    sync();  // neither side is to pay for writing the trees out
    const bool oursFirst = round % 2 == 0;
    if (oursFirst) ours.push_back(millisecondsOf(driver(), {"remove", first}));
    peer.push_back(millisecondsOf("/bin/rm", {"-rf", second}));
    if (!oursFirst) ours.push_back(millisecondsOf(driver(), {"remove", first}));
  }
  return {.name = "remove 20,000 entries / rm -rf",
          .ours = median(ours),
          .peer = median(peer),
          .unit = "ms",
          .atMost = 1.0};
}

}  // namespace

std::vector<Comparison> benchTrees() {
  const Scratch scratch;
  const std::string tree = scratch.makeTree("measured");
  std::vector<Comparison> rows{compareSizing(tree, false)};
  if (geteuid() == 0) rows.push_back(compareSizing(tree, true));
  rows.push_back(compareRemoval(scratch));
  return rows;
}

}  // namespace molvane::bench
