#include "HelperKit/Maintenance/MaintenanceRunner.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <vector>

#include "HelperProtocol/dbus/Limits.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/posix/LeftoverProcesses.hpp"
#include "Platform/testing/ToolFolder.hpp"

namespace molvane {
namespace {

using namespace std::chrono_literals;
using MaintenanceRunner::execute;
using MaintenanceRunner::Execution;
using MaintenanceRunner::Limits;
using MaintenanceRunner::Result;
using MaintenanceRunner::run;
using Command = MaintenanceTask::Command;

constexpr double kLongEnough = 60;
constexpr double kForever = std::numeric_limits<double>::infinity();
constexpr Limits kShort{.outputAfterExit = 50ms, .exitAfterStop = 50ms, .outputAfterStop = 10ms};

class MaintenanceRunnerTest : public ::testing::Test {
 protected:
  void TearDown() override {
    EXPECT_TRUE(LeftoverProcesses::shared().waitUntilNone(std::chrono::steady_clock::now() + 60s));
    EXPECT_FALSE(testing::hasUnreapedChildren());
  }

  [[nodiscard]] Command tool(const std::string& name, const std::string& commands,
                             std::vector<std::string> arguments = {}) const {
    return {tools_.addScript(name, commands), std::move(arguments)};
  }

  testing::ToolFolder tools_;
};

TEST_F(MaintenanceRunnerTest, ReturnsStatusAndMergedTrimmedRepairedOutput) {
  const Command mixed = tool(
      "mixed", "printf '\\t\\n one\\302\\240\\n'; printf 'two\\377\\342\\202 \\n' >&2; echo \"$1\"; exit 3",
      {" x "});
  EXPECT_EQ(execute(mixed, kLongEnough), (Execution{3, "one\u00A0\ntwo\uFFFD\uFFFD \n x", false}));
  EXPECT_EQ(execute(tool("blank", "printf ' \\n\\n\\t '"), kLongEnough), (Execution{0, "", false}));
  EXPECT_EQ(execute(tool("killed", "echo before; kill -KILL $$"), kLongEnough),
            (Execution{SIGKILL, "before", false}));
  for (const double unlimited : {kForever, std::numeric_limits<double>::quiet_NaN(), 1e300}) {
    EXPECT_EQ(execute(tool("quick", "exit 0"), unlimited), (Execution{0, "", false}));
  }
}

// Every byte of the output may have to be repaired, and none of it may keep the answer from being sent.
TEST_F(MaintenanceRunnerTest, LongestTranscriptFitsIntoAnAnswer) {
  constexpr std::size_t kMostBytesOfARepairedByte = 3;
  constexpr std::size_t kRoomForTheRest = 65536;
  for (const MaintenanceTask task : MaintenanceTask::allCases()) {
    if (!task.requiresRoot()) continue;
    const std::size_t kept = Limits{}.mebibytesKept * 1024 * 1024 * task.commands().size();
    EXPECT_LE(kept * kMostBytesOfARepairedByte + kRoomForTheRest, dbus::kMaxMessageSize) << task.rawValue();
  }
}

TEST_F(MaintenanceRunnerTest, DescribesWhyAToolWasNotStarted) {
  EXPECT_EQ(execute({tools_.path("missing"), {}}, kLongEnough),
            (Execution{-1, "The operation couldn’t be completed. No such file or directory", false}));
  EXPECT_EQ(execute({tools_.addFile("plain", "", 0644), {}}, kLongEnough),
            (Execution{-1, "The operation couldn’t be completed. Permission denied", false}));
  EXPECT_EQ(
      run({{tools_.path("missing"), {"-x"}}}, kLongEnough),
      (Result{false,
              "$ missing -x\nThe operation couldn’t be completed. No such file or directory\nexit -1\n"}));
}

TEST_F(MaintenanceRunnerTest, KeepsTheBeginningOfAFloodAndSaysSo) {
  const Limits oneMebibyte{.mebibytesKept = 1};
  const Execution flood = execute(tool("flood", "yes | head -c 20000000; exit 4"), kLongEnough, oneMebibyte);
  const std::string last = "y\n[output cut after 1 MiB]";
  EXPECT_EQ(flood.status, 4);
  // The newline at the end of what was kept is trimmed like any other.
  EXPECT_EQ(flood.output.size(), 1048576 - 2 + last.size());
  EXPECT_TRUE(flood.output.ends_with("y\n" + last));

  const Command exact = tool("exact", "yes | head -c 1048576");
  EXPECT_EQ(execute(exact, kLongEnough, oneMebibyte).output.size(), 1048575U);
  const Command blanks = tool("blanks", "yes '' | head -c 20000000");
  EXPECT_EQ(execute(blanks, kLongEnough, oneMebibyte).output, "[output cut after 1 MiB]");
}

TEST_F(MaintenanceRunnerTest, DoesNotWaitForAGrandchildThatKeepsThePipe) {
  const std::string fifo = tools_.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const FileDescriptor both(::open(fifo.c_str(), O_RDWR | O_CLOEXEC));
  const Command starter = tool("starter", "exec 3< \"$1\"; echo started; cat <&3 & exit 5", {fifo});
  // The grandchild ends with the fifo's last writer.
  EXPECT_EQ(execute(starter, kLongEnough, kShort), (Execution{5, "started", false}));
}

TEST_F(MaintenanceRunnerTest, StopsAToolAtTheLimitAndDropsItsOutput) {
  const Command slow = tool("slow", "echo working; exec sleep 1000", {"-a", "b c"});
  EXPECT_EQ(execute(slow, 0.6, kShort), (Execution{-1, "", true}));
  EXPECT_EQ(execute(slow, -1, kShort), (Execution{-1, "", true}));
  const std::string mark = tools_.path("mark");
  EXPECT_EQ(run({slow, tool("next", "touch \"$1\"", {mark})}, 0.6, kShort),
            (Result{false, "$ slow -a b c\ntimed out after 0 s — stopped\n"}));
  EXPECT_FALSE(std::filesystem::exists(mark));
}

TEST_F(MaintenanceRunnerTest, GivesAToolThatWasStoppedTimeToTidyUp) {
  const std::string mark = tools_.path("mark");
  const Command tidy = tool(
      "tidy", "trap 'yes | head -c 1000000; touch \"$1\"; exit' TERM; while :; do sleep 0.1; done", {mark});
  EXPECT_EQ(execute(tidy, 1.5), (Execution{-1, "", true}));
  EXPECT_TRUE(std::filesystem::exists(mark));
}

TEST_F(MaintenanceRunnerTest, LeavesAToolThatIgnoresTheRequestRunning) {
  const std::string fifo = tools_.path("fifo");
  const std::string mark = tools_.path("mark");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const FileDescriptor both(::open(fifo.c_str(), O_RDWR | O_CLOEXEC));
  const Command stubborn =
      tool("stubborn", "trap '' TERM; read released < \"$1\"; echo goodbye && touch \"$2\"", {fifo, mark});
  EXPECT_EQ(execute(stubborn, 1, kShort), (Execution{-1, "", true}));
  EXPECT_FALSE(std::filesystem::exists(mark));

  ASSERT_EQ(::write(both.get(), "\n", 1), 1);
  EXPECT_TRUE(LeftoverProcesses::shared().waitUntilNone(std::chrono::steady_clock::now() + 60s));
  EXPECT_TRUE(std::filesystem::exists(mark));
}

TEST_F(MaintenanceRunnerTest, WritesATranscriptUpToTheFirstFailure) {
  const std::string mark = tools_.path("mark");
  const Command talks = tool("talks", "echo ' hello '; echo there", {"one", "two three"});
  const Command silent = tool("silent", "printf ' \\n'");
  const Command fails = tool("fails", "echo no >&2; exit 2");
  const Command next = tool("next", "touch \"$1\"", {mark});
  EXPECT_EQ(run({talks, silent, fails, next}, kLongEnough),
            (Result{false, "$ talks one two three\nhello \nthere\n$ silent \n$ fails \nno\nexit 2\n"}));
  EXPECT_FALSE(std::filesystem::exists(mark));
  EXPECT_EQ(run({silent, talks}, kLongEnough),
            (Result{true, "$ silent \n$ talks one two three\nhello \nthere\n"}));
  EXPECT_EQ(run(std::vector<Command>{}, kLongEnough), (Result{true, ""}));
}

TEST_F(MaintenanceRunnerTest, AKillallThatFoundNothingHasNotFailed) {
  EXPECT_EQ(run({tool("killall", "echo none; exit 1", {"Dock"})}, kLongEnough),
            (Result{true, "$ killall Dock\nnone\n"}));
  EXPECT_EQ(run({tool("killall", "exit 2", {"Dock"})}, kLongEnough),
            (Result{false, "$ killall Dock\nexit 2\n"}));
  EXPECT_EQ(run({tool("notkillall", "exit 1")}, kLongEnough), (Result{false, "$ notkillall \nexit 1\n"}));
}

}  // namespace
}  // namespace molvane
