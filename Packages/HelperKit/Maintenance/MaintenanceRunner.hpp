#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Core/MaintenanceTask.hpp"

/// The helper's general way of running an external tool to its end within a time limit. No state; any thread
/// may call, and it is blocked meanwhile.
namespace molvane::MaintenanceRunner {

/// How a tool ended.
struct Execution {
  /// The exit status, or the number of the signal that ended the tool; -1 when it could not be started or was
  /// stopped.
  std::int32_t status = -1;
  /// Both output streams in the order written, invalid UTF-8 repaired, without white space and newlines at
  /// the ends. When the tool could not be started, the localized description of the reason. Empty when the
  /// limit struck.
  std::string output;
  bool timedOut = false;

  [[nodiscard]] bool failed() const noexcept { return timedOut || status != 0; }
  /// What to tell of a tool that failed: what it wrote, or that `subject`, "The installer" for one, did not
  /// finish in time.
  [[nodiscard]] std::string failureText(const std::string& subject) const;

  bool operator==(const Execution&) const = default;
};

/// What a run of a task came to.
struct Result {
  bool succeeded = false;
  std::string output;  ///< the transcript, for the person

  bool operator==(const Result&) const = default;
};

/// What bounds a run beyond the time limit that the caller sets.
struct Limits {
  std::chrono::milliseconds outputAfterExit{
      5000};  ///< wait for output still in the pipe when the tool has ended
  std::chrono::milliseconds exitAfterStop{5000};  ///< wait for the end of a tool that was asked to terminate
  std::chrono::milliseconds outputAfterStop{2000};  ///< and then for the end of its output
  /// Of a tool's output; the rest is dropped, and a last line says so. Repaired it may become three times as
  /// much, and the transcript of a task must still go into one message.
  std::size_t mebibytesKept = 20;
};

/// Runs the tool and waits for its end, at most `timeout` seconds (infinite or not a number: without limit).
///
/// At the limit the tool is sent SIGTERM and waited for a little longer; what it wrote is dropped. There is
/// no forced kill: a tool that ignores SIGTERM is left running. Never throws for what the tool does or for a
/// failed launch; std::system_error when the system fails while the tool is being watched, and then the tool
/// is killed. A process that the tool leaves behind is not waited for, and may go on writing.
[[nodiscard]] Execution execute(const MaintenanceTask::Command& command, double timeout,
                                const Limits& limits = {});

/// Runs the commands in order, `timeout` seconds each, up to the first that fails, and writes the transcript.
/// A killall that found no process (exit status 1) has not failed. With no commands: success and an empty
/// transcript.
///
/// A limit that struck stands in the transcript in whole seconds; one that is no 64-bit number of seconds
/// ends the program.
[[nodiscard]] Result run(const std::vector<MaintenanceTask::Command>& commands, double timeout,
                         const Limits& limits = {});
[[nodiscard]] Result run(MaintenanceTask task, double timeout);

}  // namespace molvane::MaintenanceRunner
