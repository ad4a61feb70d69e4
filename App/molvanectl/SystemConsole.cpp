#include "molvanectl/SystemConsole.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include "Base/NSError.hpp"
#include "Platform/FileDescriptor.hpp"

namespace molvane::ctl {
namespace {

constexpr std::size_t kLongestLine = 4096;
constexpr std::size_t kUsualColumns = 80;
constexpr std::array<int, 2> kSignals = {SIGINT, SIGTERM};

// What the handler uses; it may run at any moment.
std::atomic<int> writingEnd{-1};
std::atomic<int> caught{0};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void noteSignal(int number) {
  const int saved = errno;
  const char byte = 0;
  // A full pipe holds interruptions enough.
  [[maybe_unused]] const ssize_t written = ::write(writingEnd, &byte, 1);
  if (++caught >= 2) static_cast<void>(std::signal(number, SIG_DFL));  // NOLINT(cert-err33-c): no way to fail
  errno = saved;
}

void prepare(const FileDescriptor& end) {
  if (::fcntl(end.get(), F_SETFD, FD_CLOEXEC) != 0 || ::fcntl(end.get(), F_SETFL, O_NONBLOCK) != 0) {
    throwErrno("prepare a pipe");
  }
}

class SignalWaiter final : public Waiter {
 public:
  SignalWaiter() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) throwErrno("make a pipe");
    reading_.reset(ends[0]);
    writing_.reset(ends[1]);
    prepare(reading_);
    prepare(writing_);
    writingEnd = writing_.get();
    caught = 0;
    for (std::size_t i = 0; i < kSignals.size(); ++i) take(i);
  }

  ~SignalWaiter() override {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      if (taken_[i]) static_cast<void>(::sigaction(kSignals[i], &before_[i], nullptr));
    }
    writingEnd = -1;
  }

  SignalWaiter(const SignalWaiter&) = delete;
  SignalWaiter& operator=(const SignalWaiter&) = delete;

  Time now() override { return std::chrono::steady_clock::now(); }

  bool wait(std::chrono::milliseconds longest) override {
    const Time deadline = now() + longest;
    while (true) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now());
      pollfd entry{reading_.get(), POLLIN, 0};
      const int ready = ::poll(&entry, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
      if (ready < 0 && errno != EINTR) throwErrno("wait");
      char byte = 0;
      if (ready > 0 && ::read(reading_.get(), &byte, 1) == 1) return true;
      if (now() >= deadline) return false;
    }
  }

 private:
  void take(std::size_t i) {
    if (::sigaction(kSignals[i], nullptr, &before_[i]) != 0) throwErrno("look at a signal");
    if (before_[i].sa_handler == SIG_IGN) return;
    struct sigaction action {};
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    taken_[i] = ::sigaction(kSignals[i], &action, nullptr) == 0;
  }

  FileDescriptor reading_;
  FileDescriptor writing_;
  std::array<struct sigaction, kSignals.size()> before_{};
  std::array<bool, kSignals.size()> taken_{};
};

}  // namespace

bool SystemConsole::inIsTerminal() { return ::isatty(STDIN_FILENO) == 1; }

std::optional<std::string> SystemConsole::readLine() {
  std::string line;
  while (line.size() < kLongestLine) {
    // One by one, lest what follows the line be taken from whoever reads it.
    char byte = 0;
    const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throwErrno("Standard input could not be read");
    if (count == 0) return std::nullopt;
    if (byte == '\n') return line;
    line += byte;
  }
  return std::nullopt;
}

bool SystemConsole::redraws() {
  const char* const kind = std::getenv("TERM");  // NOLINT(concurrency-mt-unsafe): nothing sets it
  return kind == nullptr || std::string_view(kind) != "dumb";
}

std::size_t SystemConsole::columns() {
  winsize size{};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return size.ws_col;
}

std::unique_ptr<Waiter> SystemConsole::makeWaiter() { return std::make_unique<SignalWaiter>(); }

}  // namespace molvane::ctl
