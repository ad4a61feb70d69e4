#include "Measuring.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "Platform/ChildProcess.hpp"
#include "Platform/FileDescriptor.hpp"

namespace molvane::bench {
namespace {

double perSecond(const std::string& unit) {
  if (unit == "s") return 1;
  if (unit == "ms") return 1e3;
  if (unit == "µs") return 1e6;
  throw std::invalid_argument(unit + " is no unit of time");
}

}  // namespace

double secondsOf(const Work& work) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

Comparison compareInTurns(Comparison row, Rounds rounds, const Side& ours, const Side& peer) {
  std::vector<double> ourSpans;
  std::vector<double> peerSpans;
  for (int round = -rounds.warmUps; round < rounds.counted; ++round) {
    const auto measure = [round](const Side& side, std::vector<double>& spans) {
      side.prepare();
      const double span = secondsOf(side.work);
      if (round >= 0) spans.push_back(span);
    };
    const bool oursFirst = round % 2 == 0;
    if (oursFirst) measure(ours, ourSpans);
    measure(peer, peerSpans);
    if (!oursFirst) measure(ours, ourSpans);
  }
  row.ours = median(ourSpans) * perSecond(row.unit);
  row.peer = median(peerSpans) * perSecond(row.unit);
  return row;
}

void runProgram(const std::string& executable, const std::vector<std::string>& arguments, int mostStatus) {
  ChildProcess process({executable, arguments, ChildProcess::StandardInput::null});
  std::string output;
  const auto deadline = ChildProcess::Clock::now() + std::chrono::minutes(10);
  const auto keep = [&output](std::string_view piece) { output += piece; };
  const bool ended = process.pump(deadline, keep) && process.drain(deadline, keep);
  if (ended && process.terminationStatus().value_or(mostStatus + 1) <= mostStatus) return;
  std::string command = executable;
  for (const std::string& argument : arguments) command += " " + argument;
  throw std::runtime_error(command + " failed: " + output);
}

void forgetCaches() {
  sync();
  const FileDescriptor knob(open("/proc/sys/vm/drop_caches", O_WRONLY | O_CLOEXEC));
  if (!knob || write(knob.get(), "3", 1) != 1) throw std::runtime_error("cold figures need root");
}

WarmMemory::WarmMemory(std::size_t bytes) : size_(bytes + bytes / 4) { renew(); }

void WarmMemory::renew() {
  auto used = std::make_unique<PageBuffer>(size_);
  std::fill(used->bytes().begin(), used->bytes().end(), std::byte{1});
  held_ = std::move(used);
}

void makeFileTree(const std::string& path, int folders, int filesEach) {
  for (int i = 0; i < folders; ++i) {
    const std::string folder = path + "/" + std::to_string(i);
    std::filesystem::create_directories(folder);
    for (int k = 0; k < filesEach; ++k) std::ofstream(folder + "/file" + std::to_string(k)) << i;
  }
}

}  // namespace molvane::bench
