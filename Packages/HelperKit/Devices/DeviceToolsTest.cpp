#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "HelperKit/Devices/DeviceJobWork.hpp"
#include "HelperKit/Devices/ToolOutput.hpp"
#include "Platform/Thread.hpp"
#include "Platform/posix/LeftoverProcesses.hpp"
#include "Platform/testing/ToolFolder.hpp"

namespace molvane {
namespace {

using namespace std::chrono_literals;
using ::testing::EndsWith;
using Phase = DeviceJobStatus::Phase;

constexpr ToolLimits kShort{.poll = 10ms, .outputAfterExit = 50ms, .exitAtEnd = 20ms, .kibibytesKept = 4};
const std::string kMediaLine = "$ createinstallmedia --volume /Volumes/USB --nointeraction\n";

class DeviceToolsTest : public ::testing::Test {
 protected:
  DeviceToolsTest() { table_.add(id_, {}); }
  void TearDown() override {
    EXPECT_TRUE(LeftoverProcesses::shared().waitUntilNone(std::chrono::steady_clock::now() + 60s));
    EXPECT_FALSE(testing::hasUnreapedChildren());
  }

  // One that was cancelled stays so.
  void anotherJob() {
    id_ += "'";
    table_.add(id_, {});
  }

  DeviceJobStatus media(const std::string& commands, const ToolLimits& limits = kShort) {
    DeviceJob job(table_, id_);
    runInstallMedia(job, tools_.addScript("createinstallmedia", commands), "/Volumes/USB", limits);
    return table_.status(id_).value();
  }

  DeviceJobStatus fixed(const std::string& commands) {
    DeviceJob job(table_, id_);
    runFixedTool(job, tools_.addScript("tmutil", commands), {"setdestination", "/Volumes/My Backup"}, kShort);
    return table_.status(id_).value();
  }

  // Waits until the log holds `text`, then does it. The log is what a client would look at.
  [[nodiscard]] Thread onceLogged(const std::string& text, std::function<void()> action) {
    return Thread([this, text, action = std::move(action)] {
      const auto deadline = std::chrono::steady_clock::now() + 60s;
      while (std::chrono::steady_clock::now() < deadline) {
        if (table_.status(id_)->log.find(text) != std::string::npos) return action();
        std::this_thread::yield();
      }
      ADD_FAILURE() << "never logged: " << text;
    });
  }

  testing::ToolFolder tools_;
  DeviceJobTable table_;
  std::string id_ = "job";
};

TEST_F(DeviceToolsTest, KeepsTheLogValidAndBounded) {
  EXPECT_THAT(media("printf 'a\\377b\\342\\202'").log, EndsWith("a\uFFFDb\uFFFDDone.\n"));
  anotherJob();
  const DeviceJobStatus flooded = media("yes 0123456789abcdef | head -c 3000000; exit 3");
  EXPECT_THAT(flooded.log, EndsWith("\n[output cut after 4 KiB]\ncreateinstallmedia exited 3\n"));
  EXPECT_LT(flooded.log.size(), 4096 + 200);

  ToolOutput output(1);
  EXPECT_EQ(output.textOf("one \xE2"), "one ");
  EXPECT_EQ(output.textOf("\x82"), "");
  EXPECT_EQ(output.textOf("\xAC \xF0\x9F\x98"), "€ ");
  EXPECT_EQ(output.textOf("\x80\xFF"), "😀\uFFFD");
  EXPECT_EQ(output.textOf("\xC3"), "");
  EXPECT_EQ(output.rest(), "\uFFFD");
  EXPECT_EQ(output.rest(), "");
}

TEST_F(DeviceToolsTest, LeavesToolsBehindWhenTheProcessEnds) {
  const std::string done = tools_.path("done");
  {
    const Thread ender = onceLogged("ready", [this] { table_.end(); });
    EXPECT_EQ(media("trap '' TERM; echo ready; while [ ! -e " + done + " ]; do sleep 0.01; done").phase,
              Phase::cancelled);
  }
  EXPECT_EQ(fixed("while [ ! -e " + done + " ]; do sleep 0.01; done; touch " + done + ".too").phase,
            Phase::cancelled);
  std::ofstream{done};
  EXPECT_TRUE(LeftoverProcesses::shared().waitUntilNone(std::chrono::steady_clock::now() + 60s));
  EXPECT_TRUE(std::ifstream(done + ".too").good());
}

TEST_F(DeviceToolsTest, CancelledBeforeItBeginsOnlyTheDestinationIsSet) {
  EXPECT_TRUE(table_.cancel(id_));
  EXPECT_EQ(media("touch " + tools_.path("erased")),
            (DeviceJobStatus{.phase = Phase::cancelled, .log = kMediaLine}));
  EXPECT_FALSE(std::ifstream(tools_.path("erased")).good());
  anotherJob();
  EXPECT_TRUE(table_.cancel(id_));
  EXPECT_EQ(fixed("echo set").phase, Phase::finished);
}

}  // namespace
}  // namespace molvane
