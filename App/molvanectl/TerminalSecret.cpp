#include "molvanectl/TerminalSecret.hpp"

#include <fcntl.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <stdexcept>

#include "Platform/FileDescriptor.hpp"
#include "molvanectl/TerminalText.hpp"
#include "molvanectl/TextSink.hpp"

namespace molvane::ctl {
namespace {

constexpr std::array kSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGALRM, SIGTSTP, SIGTTIN, SIGTTOU};

volatile std::sig_atomic_t caughtSignal = 0;

void noteSignal(int signal) { caughtSignal = signal; }

/// Signals are noted instead of obeyed while this lives, and arrive only inside waitForInput.
class NotedSignals {
 public:
  NotedSignals() {
    caughtSignal = 0;
    sigset_t noted;
    sigemptyset(&noted);
    for (const int signal : kSignals) sigaddset(&noted, signal);
    pthread_sigmask(SIG_BLOCK, &noted, &before_);
    struct sigaction note {};
    note.sa_handler = noteSignal;
    sigfillset(&note.sa_mask);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      sigaction(kSignals[i], nullptr, &actions_[i]);
      // What the caller of the program had ignored (nohup) stays so.
      if (actions_[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &note, nullptr);
    }
  }
  NotedSignals(const NotedSignals&) = delete;
  NotedSignals& operator=(const NotedSignals&) = delete;
  ~NotedSignals() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &actions_[i], nullptr);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

  /// Until there is something to read. The signal that came first, if one did.
  [[nodiscard]] int waitForInput(int descriptor) const {
    while (caughtSignal == 0) {
      fd_set readable;
      FD_ZERO(&readable);
      FD_SET(descriptor, &readable);
      // Signals get through here and nowhere else, so none can come between the check and the wait.
      if (pselect(descriptor + 1, &readable, nullptr, nullptr, nullptr, &before_) >= 0 || errno != EINTR)
        break;
    }
    return caughtSignal;
  }

 private:
  sigset_t before_{};
  std::array<struct sigaction, kSignals.size()> actions_{};
};

/// Takes the terminal's echo away for as long as it lives.
class SilentTerminal {
 public:
  explicit SilentTerminal(int terminal) : terminal_(terminal) {
    if (tcgetattr(terminal_, &before_) != 0) throw std::runtime_error("The terminal cannot be asked.");
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK | ECHONL);
    silent.c_lflag |= ICANON | ISIG;
    // What was typed ahead is dropped: it may have been meant for something that shows it.
    if (tcsetattr(terminal_, TCSAFLUSH, &silent) != 0) {
      throw std::runtime_error("The echo of the terminal cannot be turned off.");
    }
  }
  SilentTerminal(const SilentTerminal&) = delete;
  SilentTerminal& operator=(const SilentTerminal&) = delete;
  // A secret that was not typed to its end must not wait there for the next program, which would show it.
  ~SilentTerminal() { tcsetattr(terminal_, TCSAFLUSH, &before_); }

 private:
  int terminal_;
  termios before_{};
};

/// The typed line; nothing when a signal came instead, which has been obeyed by then, so that the program was
/// stopped and goes on.
std::optional<std::string> ask(int terminal, const std::string& prompt) {
  int signal = 0;
  std::optional<std::string> line;
  {
    const NotedSignals signals;
    const SilentTerminal silent(terminal);
    DescriptorSink screen(terminal);
    screen.write(prompt);
    signal = signals.waitForInput(terminal);
    if (signal == 0) {
      // In this mode the terminal hands out one line, and never more than this.
      std::array<char, 4096> buffer{};
      const ssize_t count = ::read(terminal, buffer.data(), buffer.size());
      line.emplace(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    screen.write("\n");
  }
  if (signal != 0) static_cast<void>(raise(signal));
  return line;
}

}  // namespace

std::string secretFromTerminal(const std::string& prompt) {
  const FileDescriptor terminal(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!terminal || terminal.get() >= FD_SETSIZE) {
    throw std::runtime_error(
        "There is no terminal to ask for a password on; --password-fd reads it elsewhere.");
  }
  std::optional<std::string> line;
  while (!line) {
    if (tcgetpgrp(terminal.get()) != getpgrp()) {
      throw std::runtime_error(
          "The program runs in the background, where nobody can be asked for a password.");
    }
    line = ask(terminal.get(), visibleText(prompt));
  }
  if (line->empty() || *line == "\n") throw std::runtime_error("No password was typed. Nothing was changed.");
  if (line->back() != '\n')
    throw std::runtime_error("The password was not ended with Return, or is too long.");
  line->pop_back();
  return *line;
}

}  // namespace molvane::ctl
