#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "Harness.hpp"
#include "RawClient.hpp"

namespace molvane::e2e {
namespace {

using testing::HasSubstr;
using testing::Ne;

TEST(Lifecycle, IsStartedByTheFirstConnection) {
  endHelper();
  ASSERT_EQ(helperProcess(), std::nullopt);
  LogFollower log(kHelperLog);
  EXPECT_EQ(molvanectl({"ping"}).out, "pong\n");
  EXPECT_EQ(log.waitFor("MolvaneHelper"), "MolvaneHelper listening on com.molvane.helper");
  EXPECT_NE(helperProcess(), std::nullopt);
}

TEST(Lifecycle, NextCallAfterAKillStartsAFreshOne) {
  for (int round = 0; round < 5; ++round) {
    ASSERT_EQ(molvanectl({"ping"}).out, "pong\n");
    const auto before = helperProcess();
    endHelper();
    ASSERT_EQ(molvanectl({"ping"}).out, "pong\n");
    EXPECT_THAT(helperProcess(), Ne(before));
  }
}

TEST(Lifecycle, ClientIsToldWhenTheHelperDies) {
  const ToolBehaviour hangs("purge", "hang\n");
  LogFollower tools(kToolLog);
  Program client({kClient, "task", "run", "purge-memory"}, kAnn);
  tools.waitFor("/usr/sbin/purge");
  endHelper();
  const Outcome outcome = client.wait();
  EXPECT_EQ(outcome.status, 3) << testing::PrintToString(outcome);
  EXPECT_NE(outcome.err, "");
  EXPECT_EQ(run({"/usr/bin/pkill", "-x", "sleep"}).status, 0) << "the tool went with the helper";
}

// A slow call of one person does not hold up another's.
TEST(Lifecycle, ServesTwoPeopleSideBySide) {
  const ToolBehaviour hangs("purge", "hang\n");
  LogFollower tools(kToolLog);
  Program slow({kClient, "task", "run", "purge-memory"}, kAnn);
  tools.waitFor("/usr/sbin/purge");
  EXPECT_EQ(molvanectl({"ping"}, kBob).out, "pong\n");
  EXPECT_EQ(molvanectl({"task", "run", "flush-dns"}, kBob).status, 0);
  ASSERT_EQ(run({"/usr/bin/pkill", "-x", "sleep"}).status, 0);
  const Outcome outcome = slow.wait();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, HasSubstr("exit 15\n"));
}

// Peers without number, while it lives.
class Crowd {
 public:
  Crowd() {
    for (std::thread& knocker : knockers_) knocker = std::thread([this] { knock(); });
  }
  ~Crowd() {
    stop_ = true;
    for (std::thread& knocker : knockers_) knocker.join();
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;

 private:
  void knock() const {
    while (!stop_) {
      try {
        const RawClient refused;
      } catch (const std::system_error&) {
        // The queue is full; the next one may find room.
      }
    }
  }

  std::atomic<bool> stop_ = false;
  std::array<std::thread, 2> knockers_;
};

// The real two minutes, once. Refused peers do not hold the exit off, and one that comes in the very moment
// of it does it no harm.
TEST(Lifecycle, ExitsWhenIdleAndIsStartedAgain) {
  endHelper();
  ASSERT_EQ(molvanectl({"ping"}).out, "pong\n");
  const pid_t helper = helperProcess().value();
  LogFollower log(kHelperLog);
  LogFollower manager(kManagerLog);
  const std::string infoPlist = readFile(kInfoPlist);
  writeFile(kInfoPlist, "<plist><dict/></plist>");
  try {
    // Most of the time, so that the crowd's lines do not fill the disk.
    log.waitFor("idle", std::chrono::seconds(110));
  } catch (const std::runtime_error&) {
  }
  {
    const Crowd crowd;
    EXPECT_EQ(manager.waitFor("exited", std::chrono::seconds(90)),
              "exited " + std::to_string(helper) + " status 0");
  }
  EXPECT_THAT(readFile(kHelperLog), HasSubstr("MolvaneHelper: idle, exiting\n"));
  writeFile(kInfoPlist, infoPlist);
  endHelper();
  EXPECT_EQ(molvanectl({"ping"}).out, "pong\n");
  EXPECT_NE(helperProcess(), helper);
}

}  // namespace
}  // namespace molvane::e2e
