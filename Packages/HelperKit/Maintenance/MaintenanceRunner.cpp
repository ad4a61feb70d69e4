#include "HelperKit/Maintenance/MaintenanceRunner.hpp"

#include <cstdlib>
#include <optional>
#include <string_view>
#include <system_error>

#include "Base/NSError.hpp"
#include "Base/Text.hpp"
#include "Base/Utf8.hpp"
#include "Platform/ChildProcess.hpp"
#include "Platform/Deadline.hpp"

namespace molvane::MaintenanceRunner {

namespace {

using Clock = ChildProcess::Clock;

constexpr std::size_t kMebibyte = std::size_t{1024} * 1024;

/// Keeps the beginning of what a tool writes.
class KeptOutput {
 public:
  explicit KeptOutput(std::size_t mebibytes) : mebibytes_(mebibytes) {}

  void add(std::string_view piece) {
    const std::size_t room = mebibytes_ * kMebibyte - bytes_.size();
    cut_ = cut_ || piece.size() > room;
    bytes_ += piece.substr(0, room);
  }

  [[nodiscard]] std::string text() const {
    std::string text = trimmingWhitespaceAndNewlines(repairedUtf8(bytes_));
    if (!cut_) return text;
    if (!text.empty()) text += '\n';
    return text + "[output cut after " + std::to_string(mebibytes_) + " MiB]";
  }

 private:
  const std::size_t mebibytes_;
  std::string bytes_;
  bool cut_ = false;
};

void stop(ChildProcess& tool, const Limits& limits) {
  const auto dropped = [](std::string_view) {};
  tool.detachOnDestruction();
  tool.terminate();
  tool.pump(Clock::now() + limits.exitAfterStop, dropped);
  tool.drain(Clock::now() + limits.outputAfterStop, dropped);
}

Execution follow(ChildProcess& tool, double timeout, const Limits& limits) {
  KeptOutput output(limits.mebibytesKept);
  const auto keeping = [&output](std::string_view piece) { output.add(piece); };
  if (!tool.pump(deadlineAfter(timeout), keeping)) {
    stop(tool, limits);
    return {.status = -1, .output = "", .timedOut = true};
  }
  tool.drain(Clock::now() + limits.outputAfterExit, keeping);
  return {.status = tool.terminationStatus().value_or(-1), .output = output.text(), .timedOut = false};
}

/// Truncated. 2^63 is the first double that no longer fits.
std::int64_t wholeSeconds(double seconds) {
  constexpr double kLimit = 9223372036854775808.0;
  if (!(seconds >= -kLimit && seconds < kLimit)) std::abort();
  return static_cast<std::int64_t>(seconds);
}

std::string commandLine(const MaintenanceTask::Command& command) {
  std::string line = "$ " + command.executable.substr(command.executable.rfind('/') + 1) + " ";
  for (std::size_t i = 0; i < command.arguments.size(); ++i) {
    if (i > 0) line += ' ';
    line += command.arguments[i];
  }
  return line;
}

bool isAcceptable(std::int32_t status, const MaintenanceTask::Command& command) {
  return status == 0 || (status == 1 && command.executable.ends_with("/killall"));
}

}  // namespace

std::string Execution::failureText(const std::string& subject) const {
  return timedOut ? subject + " did not finish in time." : output;
}

Execution execute(const MaintenanceTask::Command& command, double timeout, const Limits& limits) {
  std::optional<ChildProcess> tool;
  try {
    tool.emplace(ChildProcess::Options{command.executable, command.arguments});
  } catch (const std::system_error& error) {
    return {.status = -1, .output = posixErrorDescription(error.code().value()), .timedOut = false};
  }
  return follow(*tool, timeout, limits);
}

Result run(const std::vector<MaintenanceTask::Command>& commands, double timeout, const Limits& limits) {
  std::string transcript;
  for (const MaintenanceTask::Command& command : commands) {
    transcript += commandLine(command) + "\n";
    const Execution execution = execute(command, timeout, limits);
    if (execution.timedOut) {
      transcript += "timed out after " + std::to_string(wholeSeconds(timeout)) + " s — stopped\n";
      return {.succeeded = false, .output = transcript};
    }
    if (!execution.output.empty()) transcript += execution.output + "\n";
    if (!isAcceptable(execution.status, command)) {
      transcript += "exit " + std::to_string(execution.status) + "\n";
      return {.succeeded = false, .output = transcript};
    }
  }
  return {.succeeded = true, .output = transcript};
}

Result run(MaintenanceTask task, double timeout) { return run(task.commands(), timeout); }

}  // namespace molvane::MaintenanceRunner
