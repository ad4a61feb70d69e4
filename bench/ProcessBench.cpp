#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "Base/NSError.hpp"
#include "Benchmarks.hpp"
#include "Measuring.hpp"
#include "Platform/ChildProcess.hpp"
#include "Platform/posix/SpawnHost.hpp"

namespace molvane::bench {

namespace {

constexpr int kWarmUps = 50;
constexpr int kRounds = 2000;
constexpr std::size_t kLargeProcess = std::size_t{1} << 30;
constexpr const char* kTool = "/bin/echo";
constexpr const char* kLine = "a line of output";

std::string outputOfOurs() {
  std::string output;
  const auto keep = [&output](std::string_view piece) { output += piece; };
  const auto deadline = ChildProcess::Clock::now() + std::chrono::minutes(1);
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

Comparison compare(const std::string& name) {
  const auto requireLine = [](const std::string& output) {
    if (output != std::string(kLine) + "\n") throw std::runtime_error("the tool wrote " + output);
  };
  return compareInTurns({.name = name, .unit = "µs", .atMost = 1.15},
                        {.counted = kRounds, .warmUps = kWarmUps}, {[&] { requireLine(outputOfOurs()); }},
                        {[&] { requireLine(outputOfPlainVfork()); }});
}

}  // namespace

std::vector<Comparison> benchChildProcess() {
  std::vector<Comparison> rows{compare("run a tool and read its line / plain vfork and exec")};
  const std::vector<char> touched(kLargeProcess, 1);
  rows.push_back(compare("the same from a process of " + std::to_string(touched.size() >> 30) + " GiB"));
  return rows;
}

}  // namespace molvane::bench
