#include "MolvaneHelper/RunLoop.hpp"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>

#include "Base/NSError.hpp"

namespace molvane {
namespace {

constexpr std::array<int, 3> kSignals = {SIGTERM, SIGINT, SIGHUP};

// What the handler uses; it may run at any moment.
std::atomic<int> writingEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free);

// One request is one byte: a signal's number, or 0. A pipe that is full holds requests enough.
void request(int number) {
  const auto byte = static_cast<unsigned char>(number);
  [[maybe_unused]] const ssize_t written = ::write(writingEnd, &byte, 1);
}

extern "C" void noteSignal(int number) {
  const int saved = errno;
  request(number);
  errno = saved;
}

sigset_t ourSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int number : kSignals) ::sigaddset(&signals, number);
  return signals;
}

void setMask(int how) {
  const sigset_t signals = ourSignals();
  ::pthread_sigmask(how, &signals, nullptr);
}

void setHandler(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  ::sigemptyset(&action.sa_mask);
  for (const int number : kSignals) ::sigaction(number, &action, nullptr);
}

}  // namespace

RunLoop::RunLoop() : requests_(openPipe()) {
  if (::fcntl(requests_.writeEnd.get(), F_SETFL, O_NONBLOCK) != 0) throwErrno("prepare a pipe");
  writingEnd = requests_.writeEnd.get();
  setMask(SIG_BLOCK);
  setHandler(noteSignal);
}

RunLoop::~RunLoop() {
  letSignalsEnd();
  writingEnd = -1;
}

int RunLoop::run() {
  setMask(SIG_UNBLOCK);
  unsigned char byte = 0;
  ssize_t count = 0;
  do {
    count = ::read(requests_.readEnd.get(), &byte, 1);
  } while (count < 0 && errno == EINTR);
  setMask(SIG_BLOCK);
  if (count != 1) throwErrno("wait for the process's end");
  return byte;
}

void RunLoop::stop() { request(0); }

void RunLoop::letSignalsEnd() {
  // Ignored, a pending signal is dropped.
  setHandler(SIG_IGN);
  setHandler(SIG_DFL);
  setMask(SIG_UNBLOCK);
}

}  // namespace molvane
