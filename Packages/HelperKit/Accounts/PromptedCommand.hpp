#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "HelperKit/Accounts/LocalAccountStep.hpp"

/// Runs a tool that asks for passwords on a terminal and nowhere else, and types them. No state; any thread
/// may call, and it is blocked meanwhile.
namespace molvane::PromptedCommand {

/// How a tool ended.
struct Result {
  /// The exit status, or the number of the signal that ended the tool; -1 when it could not be started or was
  /// stopped at the time limit.
  std::int32_t status = -1;
  /// What the tool and the terminal wrote, for people: invalid UTF-8 repaired, with "•••" for every reply
  /// that stands in it, the longest first, without carriage returns and without white space and newlines at
  /// the ends. When the tool could not be started, the localized description of the reason.
  std::string output;
  /// The tool was started and not followed to its end, because the limit struck or the system failed. It may
  /// have done its work all the same, and may be at it yet.
  bool abandoned = false;
  /// It was abandoned because the limit struck.
  bool timedOut = false;
  /// "Error:" stood in what the tool and the terminal wrote, whatever of it is masked or left out in
  /// `output`.
  bool saidError = false;

  /// The tools report some failures in words alone.
  [[nodiscard]] bool failed() const noexcept { return status != 0 || saidError; }
  bool operator==(const Result&) const = default;
};

/// What bounds a run beyond the time limit that the caller sets, and the tool that makes the terminal.
struct Limits {
  /// Takes "-q", "/dev/null", a command and its arguments; runs the command on a terminal of its own, copies
  /// between that and its own standard input and output, and ends as the command does.
  std::string terminalTool = "/usr/bin/script";
  std::chrono::milliseconds exitAfterStop{5000};  ///< wait for the end of a tool that was asked to terminate
  std::chrono::milliseconds outputAfterExit{
      2000};  ///< wait for output still in the pipe when the tool has ended
  /// Of a tool's output: so much of the beginning, and so much of the end. A line between says how much is
  /// left out.
  std::size_t bytesKeptOfEach = std::size_t{4} << 20U;
};

/// Runs the step and waits for its end, at most `timeout` seconds (infinite or not a number: without limit)
/// and a few more for a tool that has to be stopped.
///
/// A step with answers runs on a terminal. When the last line that the tool has written since it was last
/// answered holds "password" in any case and ends with ":", it is answered: by the first answer whose prompt
/// stands in the line, also in any case, else by the first without a prompt, else not at all. At most six
/// times in one run, and without ever waiting for a tool that does not read. At the limit the tool is sent
/// SIGTERM and, if it ignores that, left running.
///
/// Nothing is started for a reply that a terminal would not pass on as it is: of more than 1023 bytes, or
/// with a control character other than a tab, which is a key there and no part of a password. Nor for an
/// argument with a NUL, which would end it. The result says so.
///
/// A step without answers runs without a terminal, as MaintenanceRunner::execute runs it, and nothing is
/// masked.
///
/// When the system fails while the tool is being followed, the tool is killed. Never throws, unless memory
/// runs out. The copies that it makes of the replies are overwritten before they are freed; what the system
/// keeps of them in pipes and terminals is not.
[[nodiscard]] Result run(const LocalAccountRunner::Step& step, double timeout, const Limits& limits = {});

}  // namespace molvane::PromptedCommand
