#include "Terminal.hpp"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

namespace molvane::e2e {

Terminal::Terminal(const std::vector<std::string>& arguments, Person who) {
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (const auto& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);

  int terminal = -1;
  pid_ = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (pid_ < 0) throw std::system_error(errno, std::generic_category(), "forkpty");
  if (pid_ == 0) {
    if (setgroups(0, nullptr) == 0 && setresgid(who.gid, who.gid, who.gid) == 0 &&
        setresuid(who.uid, who.uid, who.uid) == 0) {
      execv(pointers[0], pointers.data());
    }
    _exit(127);
  }
  terminal_.reset(terminal);
  fcntl(terminal, F_SETFD, FD_CLOEXEC);
}

Terminal::~Terminal() {
  if (pid_ < 0) return;
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

bool Terminal::readMore() {
  pollfd readable{terminal_.get(), POLLIN, 0};
  const auto limit = std::chrono::milliseconds(kPatience).count();
  if (poll(&readable, 1, static_cast<int>(limit)) != 1) {
    throw std::runtime_error("nothing more on a terminal that showed:\n" + screen_);
  }
  std::array<char, 4096> piece{};
  const ssize_t count = read(terminal_.get(), piece.data(), piece.size());
  if (count <= 0) return false;
  screen_.append(piece.data(), static_cast<std::size_t>(count));
  return true;
}

void Terminal::waitFor(std::string_view text) {
  std::size_t at = 0;
  while ((at = screen_.find(text, seen_)) == std::string::npos) {
    if (!readMore())
      throw std::runtime_error("no \"" + std::string(text) + "\" on the terminal:\n" + screen_);
  }
  seen_ = at + text.size();
}

void Terminal::type(std::string_view text) {
  std::string line(text);
  line.push_back('\n');
  if (write(terminal_.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    throw std::system_error(errno, std::generic_category(), "type");
  }
}

void Terminal::answer(std::string_view prompt, std::string_view text) {
  waitFor(prompt);
  type(text);
}

Outcome Terminal::wait() {
  while (readMore()) {
  }
  int status = 0;
  if (waitpid(pid_, &status, 0) < 0) throw std::system_error(errno, std::generic_category(), "waitpid");
  pid_ = -1;
  std::string screen = screen_;
  screen.erase(std::remove(screen.begin(), screen.end(), '\r'), screen.end());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), std::move(screen), {}};
}

}  // namespace molvane::e2e
