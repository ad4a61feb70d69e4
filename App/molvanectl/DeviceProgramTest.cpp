#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "HelperProtocol/DeviceJobStatus.hpp"
#include "HelperProtocol/testing/ServedHelper.hpp"
#include "Platform/FileDescriptor.hpp"
#include "molvanectl/SystemConsole.hpp"
#include "molvanectl/testing/Shell.hpp"

namespace molvane::ctl {
namespace {

using molvane::testing::Answers;
using molvane::testing::RecordingHelper;
using molvane::testing::ServedHelper;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

using Phase = DeviceJobStatus::Phase;

/// A program in a session of its own, whose controlling terminal this object is the other side of.
class OnTerminal {
 public:
  OnTerminal(std::vector<std::string> words, unsigned short columns) {
    terminal_.reset(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!terminal_ || ::grantpt(terminal_.get()) != 0 || ::unlockpt(terminal_.get()) != 0) {
      throw std::runtime_error("no terminal");
    }
    winsize size{};
    size.ws_col = columns;
    size.ws_row = 24;
    ::ioctl(terminal_.get(), TIOCSWINSZ, &size);
    const std::string name = ::ptsname(terminal_.get());
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    process_ = ::fork();
    if (process_ != 0) return;
    // A shell starts what runs in its background with the signal ignored, and this is not to be inherited.
    static_cast<void>(std::signal(SIGINT, SIG_DFL));
    ::setsid();
    const int own = ::open(name.c_str(), O_RDWR);
    ::ioctl(own, TIOCSCTTY, 0);
    for (const int standard : {0, 1, 2}) ::dup2(own, standard);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }

  ~OnTerminal() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
  OnTerminal(const OnTerminal&) = delete;
  OnTerminal& operator=(const OnTerminal&) = delete;

  void type(const std::string& keys) {
    ASSERT_EQ(::write(terminal_.get(), keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  /// Reads on until `text` has been shown; everything shown since the last call.
  std::string showing(const std::string& text) {
    std::string shown;
    while (shown.find(text) == std::string::npos && readInto(shown)) {
    }
    EXPECT_THAT(shown, HasSubstr(text));
    return shown;
  }

  /// What is still shown, and the exit status.
  std::pair<std::string, int> end() {
    std::string shown;
    while (readInto(shown)) {
    }
    int status = 0;
    ::waitpid(std::exchange(process_, -1), &status, 0);
    return {shown, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
  }

 private:
  bool readInto(std::string& shown) {
    pollfd entry{terminal_.get(), POLLIN, 0};
    if (::poll(&entry, 1, 60'000) != 1) return false;
    char buffer[4096];
    const ssize_t count = ::read(terminal_.get(), buffer, sizeof buffer);
    if (count <= 0) return false;
    shown.append(buffer, static_cast<std::size_t>(count));
    return true;
  }

  FileDescriptor terminal_;
  pid_t process_ = -1;
};

/// A helper with one job, which changes its phase only when it is told to.
class OneJob {
 public:
  OneJob() {
    set(Phase::running);
    served_.helper().setBeforeReply([this] {
      for (const RecordingHelper::Call& call : served_.helper().takeCalls()) {
        if (call.method == "startDeviceJob") started_ = call.argument;
        if (call.method != "cancelDeviceJob") continue;
        ++cancellations_;
        if (obeys_) set(Phase::cancelled);
      }
      return true;
    });
  }

  void set(Phase phase) {
    DeviceJobStatus status;
    status.phase = phase;
    status.bytesDone = 420;
    status.bytesTotal = 1000;
    const std::string text = encodedJson(status);
    Answers answers;
    answers.text = "6F1E5D2A";
    answers.document = Data(text.begin(), text.end());
    served_.helper().setAnswers(answers);
  }

  void disobey() { obeys_ = false; }
  [[nodiscard]] int cancellations() const { return cancellations_; }
  [[nodiscard]] const std::string& socketPath() const { return served_.socketPath(); }
  /// Once the program has ended.
  [[nodiscard]] const std::string& started() const { return started_; }

 private:
  std::atomic<bool> obeys_ = true;
  std::atomic<int> cancellations_ = 0;
  std::string started_;
  ServedHelper served_;
};

std::vector<std::string> writing(const OneJob& job) {
  return {MOLVANECTL_PROGRAM, "--socket", job.socketPath(), "device", "write", "/x.img", "disk4"};
}

TEST(DeviceProgram, CtrlCAtATerminalCancelsAndWaits) {
  OneJob job;
  OnTerminal terminal(writing(job), 50);
  terminal.showing("Type disk4 to go on.");
  terminal.type("disk4\n");
  std::string shown = terminal.showing("writing   42%");
  EXPECT_THAT(shown, HasSubstr("job 6F1E5D2A"));
  terminal.type("\x03");
  const auto [rest, status] = terminal.end();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(rest, HasSubstr("The helper was asked to cancel the job."));
  EXPECT_THAT(
      rest,
      EndsWith(
          "molvanectl: The job was cancelled.\r\nmolvanectl: disk4 may hold only a part of the image.\r\n"));
  EXPECT_EQ(job.cancellations(), 1);
  EXPECT_THAT(job.started(), HasSubstr(R"("targetBSD":"disk4","verify":true)"));

  // What is drawn over fits into the terminal.
  shown += rest;
  for (std::size_t at = 0; (at = shown.find("\x1b[K", at)) != std::string::npos; ++at) {
    EXPECT_LT(at - shown.rfind('\r', at) - 1, 50U);
  }
}

TEST(DeviceProgram, ASecondCtrlCLeavesAJobThatDoesNotStop) {
  OneJob job;
  job.disobey();
  OnTerminal terminal(writing(job), 80);
  terminal.showing("to go on.");
  terminal.type("disk4\n");
  terminal.showing("42%");
  terminal.type("\x03");
  terminal.showing("was asked to cancel");
  terminal.type("\x03");
  const auto [rest, status] = terminal.end();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(rest, HasSubstr("Left the job 6F1E5D2A before its end."));
  EXPECT_EQ(job.cancellations(), 1);
}

TEST(DeviceProgram, CtrlCAtTheQuestionStartsNothing) {
  OneJob job;
  OnTerminal terminal(writing(job), 80);
  terminal.showing("to go on.");
  terminal.type("\x03");
  EXPECT_EQ(terminal.end().second, -1) << "ended by the signal";
  EXPECT_EQ(job.started(), "");
}

TEST(DeviceProgram, ATerminationSignalCancelsWithoutATerminal) {
  OneJob job;
  const ShellResult result =
      shell("exec 3< <(exec 2>&1; echo $BASHPID; exec $M --socket " + job.socketPath() +
            " device image disk4 /tmp/x.img)\n"
            "read -r pid <&3\n"
            "while read -r line <&3; do echo \"$line\"; [[ $line == *42%* ]] && kill -TERM $pid; done\n"
            "wait $!");
  EXPECT_EQ(result.status, 1) << result.output;
  EXPECT_EQ(job.cancellations(), 1);
  EXPECT_THAT(result.output, HasSubstr("molvanectl: reading: 42%, 420 bytes of 1.00 kB\n"));
  EXPECT_THAT(result.output, HasSubstr("molvanectl: The job was cancelled.\n"));
  EXPECT_THAT(result.output, Not(HasSubstr("\x1b")));
}

TEST(SystemConsole, TakesSignalsAsLongAsAWaiterLives) {
  struct sigaction before {};
  struct sigaction interruptBefore {};
  struct sigaction after {};
  struct sigaction own {};
  own.sa_handler = SIG_DFL;
  ASSERT_EQ(::sigaction(SIGINT, &own, &interruptBefore), 0);
  own.sa_handler = SIG_IGN;
  ASSERT_EQ(::sigaction(SIGTERM, &own, &before), 0);
  {
    SystemConsole console;
    const std::unique_ptr<Waiter> waiter = console.makeWaiter();
    EXPECT_FALSE(waiter->wait(std::chrono::milliseconds(0)));
    ::raise(SIGTERM);
    EXPECT_FALSE(waiter->wait(std::chrono::milliseconds(0))) << "ignored before, ignored still";
    ::raise(SIGINT);
    ::raise(SIGINT);
    EXPECT_TRUE(waiter->wait(std::chrono::hours(1)));
    EXPECT_TRUE(waiter->wait(std::chrono::hours(1)));
    EXPECT_FALSE(waiter->wait(std::chrono::milliseconds(0)));
    EXPECT_EXIT(::raise(SIGINT), ::testing::KilledBySignal(SIGINT), "") << "the third ends the program";
  }
  ASSERT_EQ(::sigaction(SIGTERM, &before, &after), 0);
  EXPECT_EQ(after.sa_handler, SIG_IGN);
  ASSERT_EQ(::sigaction(SIGINT, &interruptBefore, &after), 0);
  EXPECT_EQ(after.sa_handler, SIG_DFL);
}

}  // namespace
}  // namespace molvane::ctl
