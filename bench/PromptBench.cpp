#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Base/NSError.hpp"
#include "Benchmarks.hpp"
#include "HelperKit/Accounts/PromptedCommand.hpp"
#include "Measuring.hpp"
#include "Platform/ChildProcess.hpp"

namespace molvane::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWarmUps = 5;
constexpr int kRounds = 300;
constexpr const char* kPrompts = "3";
constexpr const char* kSecret = "bench-s3cret";

const std::string& tool() {
  static const std::string path =
      std::filesystem::read_symlink("/proc/self/exe").parent_path() / "molvane-bench-prompts";
  return path;
}

void requireDone(const std::string& output, int status) {
  if (status != 0 || output.find("done") == std::string::npos) {
    throw std::runtime_error("the dialogue failed with status " + std::to_string(status) + ": " + output);
  }
}

void throughOurs() {
  const PromptedCommand::Result result = PromptedCommand::run({tool(), {kPrompts}, {{std::nullopt, kSecret}}},
                                                              60, {.terminalTool = MOLVANE_BENCH_SCRIPT});
  requireDone(result.output, result.status);
}

void runAndRead(const ChildProcess::Options& options) {
  std::string output;
  const auto keep = [&output](std::string_view piece) { output += piece; };
  const auto deadline = Clock::now() + std::chrono::minutes(1);
  ChildProcess child(options);
  if (!child.pump(deadline, keep) || !child.drain(deadline, keep)) throw std::runtime_error("the tool hangs");
  requireDone(output, child.terminationStatus().value_or(-1));
}

void throughExpect() {
  const std::string script = "log_user 1; spawn -noecho " + tool() + " " + kPrompts +
                             "; for {set i 0} {$i < 3} {incr i} {expect \"assword:\"; send \"" + kSecret +
                             "\\r\"}; expect eof; exit [lindex [wait] 3]";
  runAndRead({"/usr/bin/expect", {"-c", script}, ChildProcess::StandardInput::null});
}

void onATerminalWithoutPrompts() {
  runAndRead({MOLVANE_BENCH_SCRIPT, {"-q", "/dev/null", tool(), "0"}, ChildProcess::StandardInput::null});
}

/// The tool with nothing around it: a terminal of this process, answered at once.
void bare(const char* prompts) {
  int terminal = -1;
  const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (pid < 0) throwErrno("forkpty");
  if (pid == 0) {
    execl(tool().c_str(), tool().c_str(), prompts, nullptr);
    _exit(127);
  }
  std::string output;
  std::array<char, 4096> buffer;
  const std::string answer = std::string(kSecret) + "\n";
  for (ssize_t count = 1; count > 0;) {
    count = read(terminal, buffer.data(), buffer.size());
    if (count > 0) output.append(buffer.data(), static_cast<std::size_t>(count));
    if (count > 0 && output.ends_with("assword:") && write(terminal, answer.data(), answer.size()) < 0) break;
  }
  close(terminal);
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) throwErrno("waitpid");
  requireDone(output, status);
}

double millisecondsOf(const Work& work) { return secondsOf(work) * 1e3; }

}  // namespace

std::vector<Comparison> benchPrompts() {
  std::vector<double> ours;
  std::vector<double> expect;
  std::vector<double> withoutPrompts;
  std::vector<double> asking;
  std::vector<double> notAsking;
  for (int round = -kWarmUps; round < kRounds; ++round) {
    const std::array<double, 5> spans{
        millisecondsOf(throughOurs), millisecondsOf(throughExpect), millisecondsOf(onATerminalWithoutPrompts),
        millisecondsOf([] { bare(kPrompts); }), millisecondsOf([] { bare("0"); })};
    if (round < 0) continue;
    ours.push_back(spans[0]);
    expect.push_back(spans[1]);
    withoutPrompts.push_back(spans[2]);
    asking.push_back(spans[3]);
    notAsking.push_back(spans[4]);
  }
  // What the tool itself needs for its prompts when they are answered at once.
  const double toolsOwn = median(asking) - median(notAsking);
  return {{.name = "three password prompts answered / expect",
           .ours = median(ours),
           .peer = median(expect),
           .unit = "ms",
           .atMost = 1},
          {.name = "the same / the tool on a terminal without prompts, and its own time for them",
           .ours = median(ours),
           .peer = median(withoutPrompts) + toolsOwn,
           .unit = "ms",
           .atMost = 1.2}};
}

}  // namespace molvane::bench
