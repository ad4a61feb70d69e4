#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace molvane {

/// One started tool. The only way in which the project starts processes.
///
/// The tool gets an absolute path and an argument vector and no shell, the caller's environment and working
/// directory, default signal dispositions and an empty signal mask, and no descriptor but the standard three.
/// Standard output and standard error are one pipe, so both streams arrive merged in the order written.
///
/// One thread at a time may use an object; an output handler may call the object that calls it. Any number of
/// objects may live on any number of threads. The process is always reaped: by the object while it is in use,
/// by its destructor, or in the background once it was left behind.
///
/// What still writes into the pipe when the object goes, be it the tool or a process that it has started, can
/// go on: a process that drops everything reads from then on, even beyond the caller's end. While there are
/// 256 of these, the pipe of a tool that has ended is closed, and the log says so.
///
/// A process that ignores SIGCHLD is not told how its children ended, so starting a tool puts an ignored
/// SIGCHLD of the whole process back to its default. A handler that somebody installed is left alone, but it
/// must not reap.
class ChildProcess {
 public:
  enum class StandardInput {
    inherited,  ///< the caller's own; the null device when the caller has none
    null,       ///< the null device
    pipe,       ///< a pipe; see writeInput
  };

  struct Options {
    std::string executable;              ///< absolute path
    std::vector<std::string> arguments;  ///< without the program's own name
    StandardInput standardInput = StandardInput::inherited;
  };

  using Clock = std::chrono::steady_clock;
  using Duration = Clock::duration;

  /// Starts the tool. The cost does not grow with the caller's memory.
  ///
  /// Throws std::system_error with the errno of the launch when it cannot be started: ENOENT, EACCES, ENOEXEC
  /// (a file that is no program; no shell is tried), E2BIG, EMFILE, ...; EINVAL for a path that is not
  /// absolute and for a text with a NUL in it; EAGAIN while too many tools that were left behind still run.
  /// Then no process is left, and no descriptor.
  explicit ChildProcess(const Options& options);

  /// Kills a process that still runs and reaps it, unless detachOnDestruction() was called. A process that
  /// does not die within a few seconds, as one that waits for a dead disk, is left behind as if detached.
  ~ChildProcess();

  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Receives output as it arrives, in pieces of any size. What it throws leaves pump or drain.
  using OutputHandler = std::function<void(std::string_view)>;

  /// Hands output to `onOutput` until the process has ended or `deadline` has come; true when it has ended,
  /// even if the deadline was over from the start. Output that is still in the pipe when the process ends is
  /// left for drain().
  bool pump(Clock::time_point deadline, const OutputHandler& onOutput);

  /// Hands output to `onOutput` until the pipe's end or `deadline`; true when the end was reached. A
  /// grandchild that keeps the pipe open therefore costs the time until the deadline and no more.
  bool drain(Clock::time_point deadline, const OutputHandler& onOutput);

  /// Puts `bytes` into the tool's standard input (StandardInput::pipe only) and never waits. False when it
  /// could not take all of them: the tool does not read any more, the pipe is full, or closeInput() was
  /// called. Up to 512 bytes go in whole or not at all.
  bool writeInput(std::string_view bytes);

  /// The tool reads the end of its input once it has read what was written. Does nothing the second time.
  void closeInput();

  /// Sends SIGTERM; does nothing when the process has ended.
  void terminate();

  /// The exit status, or the signal's number for a process that a signal ended; -1 when somebody else reaped
  /// it; nothing while it runs. Does not wait.
  [[nodiscard]] std::optional<int> terminationStatus();

  /// Lets the destructor leave a running process alone instead of killing it. It is reaped when it ends, if
  /// the calling program still runs then.
  void detachOnDestruction();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace molvane
