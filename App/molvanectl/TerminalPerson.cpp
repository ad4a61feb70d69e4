#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "molvanectl/Person.hpp"

namespace molvane::ctl {
namespace {

constexpr std::size_t kLongestLine = 4096;

// What a signal handler may touch.
std::atomic<int> interruptCount{0};
std::atomic<int> wakeUp{-1};
std::array<int, 2> wakeUpPipe{-1, -1};
struct sigaction formerAction {};

void onInterrupt(int /*signal*/) {
  const int kept = errno;
  ++interruptCount;
  const char byte = 0;
  // A full pipe wakes as well.
  static_cast<void>(::write(wakeUp, &byte, 1) == 1);
  errno = kept;
}

void makeNonBlocking(int descriptor) {
  ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
  ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

}  // namespace

TerminalPerson::~TerminalPerson() {
  if (!isCatching_) return;
  ::sigaction(SIGINT, &formerAction, nullptr);
  wakeUp = -1;
  for (int& end : wakeUpPipe) {
    ::close(end);
    end = -1;
  }
}

std::optional<std::string> TerminalPerson::typedLine() {
  if (::isatty(STDIN_FILENO) != 1) return std::nullopt;
  std::string line;
  while (line.size() < kLongestLine) {
    char byte = 0;
    const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    if (byte == '\n') return line;
    line += byte;
  }
  return std::nullopt;
}

void TerminalPerson::catchInterrupts() {
  if (isCatching_) return;
  if (::pipe(wakeUpPipe.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  for (const int end : wakeUpPipe) makeNonBlocking(end);
  wakeUp = wakeUpPipe[1];
  interruptCount = 0;
  struct sigaction action {};
  action.sa_handler = onInterrupt;
  action.sa_flags = SA_RESTART;
  ::sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, &formerAction);
  isCatching_ = true;
}

int TerminalPerson::interrupts() const { return isCatching_ ? interruptCount.load() : 0; }

void TerminalPerson::wait(std::chrono::milliseconds duration) {
  const Clock::time_point end = Clock::now() + duration;
  const int seen = interrupts();
  while (interrupts() == seen) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0) return;
    pollfd readable{wakeUpPipe[0], POLLIN, 0};
    if (::poll(&readable, 1, static_cast<int>(left)) == 1) {
      std::array<char, 64> bytes{};
      while (::read(wakeUpPipe[0], bytes.data(), bytes.size()) > 0) continue;
      return;
    }
  }
}

}  // namespace molvane::ctl
