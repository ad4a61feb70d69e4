#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Base/NSError.hpp"
#include "Benchmarks.hpp"
#include "Platform/ChildProcess.hpp"
#include "Platform/posix/SpawnHost.hpp"
#include "Report.hpp"

namespace molvane::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWarmUps = 50;
constexpr int kRounds = 2000;
constexpr std::size_t kLargeProcess = std::size_t{1} << 30;
constexpr const char* kTool = "/bin/echo";
constexpr const char* kLine = "a line of output";

std::string outputOfOurs() {
  std::string output;
  const auto keep = [&output](std::string_view piece) { output += piece; };
  const auto deadline = Clock::now() + std::chrono::minutes(1);
  ChildProcess tool({kTool, {kLine}, ChildProcess::StandardInput::inherited});
  if (!tool.pump(deadline, keep) || !tool.drain(deadline, keep)) throw std::runtime_error("the tool hangs");
  if (tool.terminationStatus() != 0) throw std::runtime_error("the tool failed");
  return output;
}

/// The least that gets the same line: no time limit, no signal state, no other descriptor closed.
std::string outputOfPlainVfork() {
  Pipe pipe = openPipe();
  std::array<char*, 3> argv{const_cast<char*>(kTool), const_cast<char*>(kLine), nullptr};
  // NOLINTBEGIN(clang-analyzer-security.insecureAPI.vfork,clang-analyzer-unix.Vfork)
  const pid_t pid = ::vfork();
  if (pid < 0) throwErrno("vfork");
  if (pid == 0) {
    ::dup2(pipe.writeEnd.get(), STDOUT_FILENO);
    ::dup2(pipe.writeEnd.get(), STDERR_FILENO);
    ::execve(kTool, argv.data(), environ);
    ::_exit(127);
  }
  // NOLINTEND(clang-analyzer-security.insecureAPI.vfork,clang-analyzer-unix.Vfork)
  pipe.writeEnd.reset();
  std::string output;
  std::array<char, 65536> buffer;
  for (ssize_t count = 1; count > 0;) {
    count = ::read(pipe.readEnd.get(), buffer.data(), buffer.size());
    if (count > 0) output.append(buffer.data(), static_cast<std::size_t>(count));
  }
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid || status != 0) throw std::runtime_error("the tool failed");
  return output;
}

double microsecondsOf(const std::function<std::string()>& run) {
  const Clock::time_point start = Clock::now();
  const std::string output = run();
  const std::chrono::duration<double, std::micro> span = Clock::now() - start;
  if (output != std::string(kLine) + "\n")
    throw std::runtime_error("the tool wrote something else: " + output);
  return span.count();
}

Comparison compare(const std::string& name) {
  std::vector<double> ours;
  std::vector<double> peer;
  for (int round = -kWarmUps; round < kRounds; ++round) {
    const double ourSpan = microsecondsOf(outputOfOurs);
    const double peerSpan = microsecondsOf(outputOfPlainVfork);
    if (round < 0) continue;
    ours.push_back(ourSpan);
    peer.push_back(peerSpan);
  }
  return {.name = name, .ours = median(ours), .peer = median(peer), .unit = "µs", .atMost = 1.15};
}

}  // namespace

std::vector<Comparison> benchChildProcess() {
  std::vector<Comparison> rows{compare("run a tool and read its line / plain vfork and exec")};
  const std::vector<char> touched(kLargeProcess, 1);
  rows.push_back(compare("the same from a process of " + std::to_string(touched.size() >> 30) + " GiB"));
  return rows;
}

}  // namespace molvane::bench
