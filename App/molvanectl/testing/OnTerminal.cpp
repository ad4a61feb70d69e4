#include "molvanectl/testing/OnTerminal.hpp"

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <utility>

namespace molvane::ctl {
namespace {

constexpr int kLongestWait = 60'000;  // milliseconds, for what comes at once

}  // namespace

OnTerminal::OnTerminal(std::vector<std::string> words, unsigned short columns) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  winsize size{};
  size.ws_col = columns;
  size.ws_row = 24;
  int terminal = -1;
  process_ = forkpty(&terminal, nullptr, nullptr, &size);
  if (process_ == 0) {
    // A shell starts what runs in its background with the signal ignored, and this is not to be inherited.
    static_cast<void>(std::signal(SIGINT, SIG_DFL));
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  terminal_.reset(terminal);
}

OnTerminal::~OnTerminal() {
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

void OnTerminal::waitFor(const std::string& text) {
  std::size_t found = std::string::npos;
  while ((found = shown.find(text, seen_)) == std::string::npos) ASSERT_TRUE(readSome()) << shown;
  seen_ = found + text.size();
}

void OnTerminal::type(const std::string& keys) {
  ASSERT_EQ(write(terminal_.get(), keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

void OnTerminal::signal(int number) { kill(-process_, number); }

bool OnTerminal::echoes() const {
  termios settings{};
  EXPECT_EQ(tcgetattr(terminal_.get(), &settings), 0);
  return (settings.c_lflag & ECHO) != 0;
}

int OnTerminal::end() {
  while (readSome()) continue;
  int status = -1;
  EXPECT_EQ(waitpid(process_, &status, 0), process_);
  process_ = -1;
  return status;
}

/// False at the end, which this host tells by an error, and when nothing comes.
bool OnTerminal::readSome() {
  pollfd waiting{terminal_.get(), POLLIN, 0};
  if (poll(&waiting, 1, kLongestWait) != 1) return false;
  std::array<char, 4096> buffer{};
  const ssize_t count = read(terminal_.get(), buffer.data(), buffer.size());
  if (count <= 0) return false;
  shown.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}

}  // namespace molvane::ctl
