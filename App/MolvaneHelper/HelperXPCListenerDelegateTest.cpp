#include "MolvaneHelper/HelperXPCListenerDelegate.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "HelperKit/Devices/DeviceJobRunner.hpp"
#include "HelperKit/Service/HelperPathPolicy.hpp"
#include "MolvaneHelper/testing/FakeConnection.hpp"
#include "Platform/testing/ManualTimerQueue.hpp"

namespace molvane {
namespace {

using std::chrono::seconds;
using testing::FakeConnection;
using ::testing::HasSubstr;

class HelperXPCListenerDelegateTest : public ::testing::Test {
 protected:
  FakeConnection& connect(std::uint32_t uid = 501) {
    connections_.push_back(std::make_unique<FakeConnection>(uid));
    accepted_ = delegate_->shouldAcceptNewConnection(*connections_.back());
    return *connections_.back();
  }

  testing::ManualTimerQueue timers_;
  std::string teamID_ = "TEAM123456";
  int exits_ = 0;
  bool accepted_ = false;
  std::vector<std::unique_ptr<FakeConnection>> connections_;
  std::shared_ptr<HelperXPCListenerDelegate> delegate_ = std::make_shared<HelperXPCListenerDelegate>(
      std::make_shared<HelperService>(HelperPathPolicy::fixtureAllowlist("/nonexistent"),
                                      std::set<std::string>{},
                                      std::make_unique<DeviceJobRunner>([] { return DevicePolicy(); }),
                                      std::make_unique<CompanyAdminKeeper>("/nonexistent")),
      HelperXPCListenerDelegate::Process{timers_, [this] { return teamID_; }, [this] { ++exits_; }});
};

TEST_F(HelperXPCListenerDelegateTest, AConnectionKeepsTheProcessForAsLongAsItLives) {
  delegate_->scheduleIdleExit();
  timers_.advance(seconds(119));
  FakeConnection& connection = connect();
  EXPECT_TRUE(accepted_);
  EXPECT_TRUE(connection.resumed);
  timers_.advance(seconds(100'000));
  EXPECT_EQ(exits_, 0);

  connection.invalidate();
  timers_.advance(seconds(119));
  EXPECT_EQ(exits_, 0);
  timers_.advance(seconds(1));
  EXPECT_EQ(exits_, 1);
}

TEST_F(HelperXPCListenerDelegateTest, CountsEveryConnection) {
  delegate_->scheduleIdleExit();
  FakeConnection& first = connect();
  FakeConnection& second = connect(502);
  first.invalidate();
  timers_.advance(seconds(1'000));
  EXPECT_EQ(exits_, 0);
  second.invalidate();

  // One more than was ever counted: the count stays at 0 and the idle period starts anew.
  timers_.advance(seconds(60));
  second.invalidate();
  timers_.advance(seconds(119));
  EXPECT_EQ(exits_, 0);
  FakeConnection& third = connect();
  timers_.advance(seconds(1'000));
  EXPECT_EQ(exits_, 0);
  third.invalidate();
  timers_.advance(seconds(120));
  EXPECT_EQ(exits_, 1);
}

TEST_F(HelperXPCListenerDelegateTest, BindsEachConnectionToItsUserOverTheOneRequirement) {
  const FakeConnection& ann = connect(501);
  const FakeConnection& bob = connect(502);
  ASSERT_TRUE(ann.exported && bob.exported);
  EXPECT_EQ(ann.exported->peerUID(), 501U);
  EXPECT_EQ(bob.exported->peerUID(), 502U);
  EXPECT_THAT(ann.requirement.value_or(""),
              HasSubstr("anchor apple generic and identifier \"com.molvane.app\""));
  EXPECT_THAT(ann.requirement.value_or(""), HasSubstr("certificate leaf[subject.OU] = \"TEAM123456\""));
}

TEST_F(HelperXPCListenerDelegateTest, RefusesEveryPeerWithoutATeamAndStillEnds) {
  delegate_->scheduleIdleExit();
  teamID_.clear();
  timers_.advance(seconds(60));

  ::testing::internal::CaptureStderr();
  const FakeConnection& refused = connect();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "MolvaneHelper: no team ID in Release build; refusing all peers\n"
            "MolvaneHelper: rejected XPC peer\n");
  EXPECT_FALSE(accepted_);
  EXPECT_FALSE(refused.requirement || refused.exported || refused.resumed);

  // Neither counted nor a reason to start the idle period anew.
  timers_.advance(seconds(60));
  EXPECT_EQ(exits_, 1);
}

TEST_F(HelperXPCListenerDelegateTest, ConnectionsMayOutliveTheDelegate) {
  FakeConnection& connection = connect();
  delegate_->scheduleIdleExit();
  delegate_.reset();
  ::testing::internal::CaptureStderr();
  connection.invalidate();
  timers_.advance(seconds(1'000));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "MolvaneHelper: connection invalidated\n");
  EXPECT_EQ(exits_, 0);
}

}  // namespace
}  // namespace molvane
