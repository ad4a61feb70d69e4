#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "HelperProtocol/DeviceJobStatus.hpp"
#include "HelperProtocol/testing/ServedHelper.hpp"
#include "Platform/testing/TemporaryFolder.hpp"
#include "molvanectl/SystemConsole.hpp"
#include "molvanectl/testing/OnTerminal.hpp"

namespace molvane::ctl {
namespace {

using molvane::testing::Answers;
using molvane::testing::RecordingHelper;
using molvane::testing::ServedHelper;
using ::testing::EndsWith;
using ::testing::HasSubstr;

using Phase = DeviceJobStatus::Phase;

/// A helper with one job, which changes its phase only when it is told to.
class OneJob {
 public:
  OneJob() {
    // To the question about the disk, whose image no helper accepts.
    served_.helper().setAnswers(Answers::failure(
        {"com.molvane.helper.policy", 10, "Image not allowed:  (.img/.iso/.raw/.dmg/.cdr)"}));
    served_.helper().setBeforeReply([this] {
      for (const RecordingHelper::Call& call : served_.helper().takeCalls()) {
        if (call.method == "startDeviceJob") {
          started_ = call.argument;
          set(Phase::running);
        }
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

struct DeviceProgram : ::testing::Test {
  DeviceProgram() { std::ofstream(image) << "content"; }

  [[nodiscard]] std::vector<std::string> writing() const {
    return {MOLVANECTL_PROGRAM, "--socket", job.socketPath(), "device", "write", image, "disk4"};
  }

  TemporaryFolder folder;
  const std::string image = folder.path() + "/x.img";
  OneJob job;
};

TEST_F(DeviceProgram, CtrlCAtATerminalCancelsAndWaits) {
  OnTerminal terminal(writing(), 50);
  terminal.waitFor("Type disk4 to go on.");
  terminal.type("disk4\n");
  terminal.waitFor("job 6F1E5D2A");
  terminal.waitFor("writing   42%");
  terminal.type("\x03");
  EXPECT_EQ(WEXITSTATUS(terminal.end()), 1);
  const std::string& shown = terminal.shown;
  EXPECT_THAT(shown, HasSubstr("The helper was asked to cancel the job."));
  EXPECT_THAT(
      shown,
      EndsWith(
          "molvanectl: The job was cancelled.\r\nmolvanectl: disk4 may hold only a part of the image.\r\n"));
  EXPECT_EQ(job.cancellations(), 1);
  EXPECT_THAT(job.started(), HasSubstr(R"("targetBSD":"disk4","verify":true)"));

  // What is drawn over fits into the terminal.
  for (std::size_t at = 0; (at = shown.find("\x1b[K", at)) != std::string::npos; ++at) {
    EXPECT_LT(at - shown.rfind('\r', at) - 1, 50U);
  }
}

TEST_F(DeviceProgram, ASecondCtrlCLeavesAJobThatDoesNotStop) {
  job.disobey();
  OnTerminal terminal(writing());
  terminal.waitFor("to go on.");
  terminal.type("disk4\n");
  terminal.waitFor("42%");
  terminal.type("\x03");
  terminal.waitFor("was asked to cancel");
  terminal.type("\x03");
  EXPECT_EQ(WEXITSTATUS(terminal.end()), 1);
  EXPECT_THAT(terminal.shown, HasSubstr("Left the job 6F1E5D2A before its end."));
  EXPECT_THAT(terminal.shown, HasSubstr("'molvanectl device watch 6F1E5D2A' follows it."));
  EXPECT_EQ(job.cancellations(), 1);
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
