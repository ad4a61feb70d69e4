#include "Platform/ChildProcess.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <utility>

#include "Base/NSError.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/posix/LeftoverProcesses.hpp"
#include "Platform/posix/PollUntil.hpp"
#include "Platform/posix/SpawnHost.hpp"
#include "Platform/posix/SpawnRequest.hpp"
#include "Platform/posix/UnreapedProcess.hpp"

namespace molvane {

namespace {

constexpr std::size_t kBytesReadAtOnce = 65536;
constexpr std::chrono::seconds kPatienceAfterKill{3};

/// Without this the kernel forgets how children ended, and waiting for one finds none.
void keepExitStatuses() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) != 0) throwErrno("reading the disposition of SIGCHLD");
  const bool ignored = (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
  if (!ignored && (action.sa_flags & SA_NOCLDWAIT) == 0) return;
  if (ignored) action.sa_handler = SIG_DFL;
  action.sa_flags &= ~SA_NOCLDWAIT;
  if (::sigaction(SIGCHLD, &action, nullptr) != 0) throwErrno("restoring SIGCHLD");
}

/// Keeps a write to a pipe without a reader from raising SIGPIPE, for this thread and as long as it lives.
class BrokenPipeShield {
 public:
  BrokenPipeShield() {
    ::sigemptyset(&brokenPipe_);
    ::sigaddset(&brokenPipe_, SIGPIPE);
    wasPending_ = isPending();
    ::pthread_sigmask(SIG_BLOCK, &brokenPipe_, &previousMask_);
  }
  ~BrokenPipeShield() {
    int signal = 0;
    if (!wasPending_ && isPending()) ::sigwait(&brokenPipe_, &signal);
    ::pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
  }
  BrokenPipeShield(const BrokenPipeShield&) = delete;
  BrokenPipeShield& operator=(const BrokenPipeShield&) = delete;

 private:
  static bool isPending() {
    sigset_t pending;
    ::sigemptyset(&pending);
    ::sigpending(&pending);
    return ::sigismember(&pending, SIGPIPE) == 1;
  }

  sigset_t brokenPipe_;
  sigset_t previousMask_;
  bool wasPending_ = false;
};

}  // namespace

struct ChildProcess::State {
  UnreapedProcess process;
  FileDescriptor input;
  FileDescriptor output;
  std::optional<int> status;
  bool detached = false;
  std::array<char, kBytesReadAtOnce> buffer;

  pid_t start(const Options& options);
  bool hasEnded(Clock::time_point deadline);
  void forward(const OutputHandler& onOutput);
};

pid_t ChildProcess::State::start(const Options& options) {
  Pipe out = openPipe();
  Pipe in;
  if (options.standardInput == StandardInput::pipe) {
    in = openPipe();
    if (::fcntl(in.writeEnd.get(), F_SETFL, O_NONBLOCK) != 0) throwErrno("setting up a tool's input");
  }
  SpawnRequest request(options.executable, options.arguments);
  request.setOutput(out.writeEnd);
  switch (options.standardInput) {
    case StandardInput::inherited:
      request.inheritInput();
      break;
    case StandardInput::null:
      request.setNullInput();
      break;
    case StandardInput::pipe:
      request.setInput(in.readEnd);
      break;
  }
  output = std::move(out.readEnd);
  input = std::move(in.writeEnd);
  return request.spawn();
}

bool ChildProcess::State::hasEnded(Clock::time_point deadline) {
  pollfd watch{process.exitWatch.get(), POLLIN, 0};
  if (!status && pollUntil({&watch, 1}, deadline)) status = reap(process.pid);
  return status.has_value();
}

void ChildProcess::State::forward(const OutputHandler& onOutput) {
  const ssize_t count = ::read(output.get(), buffer.data(), buffer.size());
  if (count < 0 && errno == EINTR) return;
  if (count < 0) throwErrno("reading a tool's output");
  if (count == 0) {
    output.reset();
  } else {
    onOutput({buffer.data(), static_cast<std::size_t>(count)});
  }
}

ChildProcess::ChildProcess(const Options& options) : state_(std::make_unique<State>()) {
  LeftoverProcesses::shared().requireRoom();
  keepExitStatuses();
  const pid_t pid = state_->start(options);
  // The child's ends are closed by now, so that the watch finds a free descriptor even at the limit.
  state_->process = watched(pid);
}

ChildProcess::~ChildProcess() {
  closeInput();
  if (!terminationStatus() && !state_->detached) {
    ::kill(state_->process.pid, SIGKILL);
    state_->hasEnded(Clock::now() + kPatienceAfterKill);
  }
  LeftoverProcesses& leftovers = LeftoverProcesses::shared();
  if (state_->status) {
    leftovers.swallow(std::move(state_->output));
  } else {
    leftovers.adopt(std::move(state_->process), std::move(state_->output));
  }
}

bool ChildProcess::pump(Clock::time_point deadline, const OutputHandler& onOutput) {
  while (!state_->status) {
    std::array<pollfd, 2> polled{{{state_->process.exitWatch.get(), POLLIN, 0},  //
                                  {state_->output.get(), POLLIN, 0}}};
    const bool anything = pollUntil(polled, deadline);
    if (polled[0].revents != 0) return state_->hasEnded(Clock::now());
    if (polled[1].revents != 0) state_->forward(onOutput);
    // A tool that writes without pause would keep the wait from ever running out.
    if (!anything || Clock::now() >= deadline) return state_->hasEnded(Clock::now());
  }
  return true;
}

bool ChildProcess::drain(Clock::time_point deadline, const OutputHandler& onOutput) {
  while (state_->output) {
    pollfd output{state_->output.get(), POLLIN, 0};
    if (pollUntil({&output, 1}, deadline)) state_->forward(onOutput);
    if (Clock::now() >= deadline) break;
  }
  return !state_->output;
}

bool ChildProcess::writeInput(std::string_view bytes) {
  const BrokenPipeShield shield;
  while (!bytes.empty()) {
    const ssize_t count = ::write(state_->input.get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

void ChildProcess::closeInput() { state_->input.reset(); }

void ChildProcess::terminate() {
  if (!terminationStatus()) ::kill(state_->process.pid, SIGTERM);
}

std::optional<int> ChildProcess::terminationStatus() {
  state_->hasEnded(Clock::now());
  return state_->status;
}

void ChildProcess::detachOnDestruction() { state_->detached = true; }

}  // namespace molvane
