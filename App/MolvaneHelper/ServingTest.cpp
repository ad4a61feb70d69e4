#include "MolvaneHelper/Serving.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "HelperKit/Devices/ChunkStream.hpp"
#include "HelperKit/Devices/testing/FakeDisk.hpp"
#include "HelperKit/Service/HelperPathPolicy.hpp"
#include "MolvaneHelper/testing/FakeConnection.hpp"
#include "Platform/testing/ManualTimerQueue.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

using namespace std::chrono_literals;
using Phase = DeviceJobStatus::Phase;

constexpr std::size_t kDiskSize = 2 * ChunkBuffer::kChunkSize;

class OneDisk final : public DeviceFactsProviding {
 public:
  std::optional<DeviceFacts> facts(const std::string& name) const override {
    return DeviceFacts{.bsdName = name, .isWhole = true, .sizeBytes = kDiskSize};
  }
  std::set<std::string> wholeDisks(const std::string& name) const override { return {name}; }
  std::set<std::string> bootWholeDisks() const override { return {}; }
  std::set<std::string> systemWholeDisks() const override { return {}; }
};

class CountingListener final : public Listener {
 public:
  void setDelegate(ListenerDelegate&) override {}
  void resume() override { ++resumed; }
  void suspend() override { ++suspended; }

  std::atomic<int> resumed = 0;
  std::atomic<int> suspended = 0;
};

bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + 60s;
  while (!condition() && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(1ms);
  return condition();
}

class ServingTest : public ::testing::Test {
 protected:
  std::string start() {
    std::filesystem::remove(image_);
    return jobs_.start({ImageDevice{"disk4", image_, 0}}, geteuid());
  }
  // A job whose disk answers no request before release().
  std::string startHeldJob() {
    std::string id = start();
    EXPECT_TRUE(eventually([this] { return asked_ > 0; }));
    return id;
  }
  void release() { release_.set_value(); }
  void serve() { serveUntilEnd({loop_, listener_, *delegate_, jobs_}, 20ms); }
  Phase phase(const std::string& id) { return jobs_.status(id)->phase; }

  RunLoop loop_;
  TemporaryFolder folder_;
  const std::string image_ = folder_.path() + "/disk.img";
  std::promise<void> release_;
  const std::shared_future<void> released_ = release_.get_future().share();
  std::atomic<int> asked_ = 0;
  testing::FakeDisk disk_{kDiskSize};
  std::unique_ptr<DeviceJobRunner> ownedJobs_ = std::make_unique<DeviceJobRunner>(
      [] {
        return DevicePolicy{std::make_shared<OneDisk>(), {}, makeDeviceFileAccess(), nullptr};
      },
      [this](const RawDeviceRequest& request) {
        disk_.onRequest = [this](testing::FakeDisk::Request, std::int64_t) {
          ++asked_;
          released_.wait();
        };
        return disk_.opener()(request);
      });
  DeviceJobRunner& jobs_ = *ownedJobs_;
  testing::ManualTimerQueue timers_;
  CountingListener listener_;
  std::shared_ptr<HelperXPCListenerDelegate> delegate_ = std::make_shared<HelperXPCListenerDelegate>(
      std::make_shared<HelperService>(HelperPathPolicy::fixtureAllowlist("/nonexistent"),
                                      std::set<std::string>{}, std::move(ownedJobs_),
                                      std::make_unique<CompanyAdminKeeper>("/nonexistent")),
      HelperXPCListenerDelegate::Process{timers_, [] { return "TEAM123456"; }, [this] { loop_.stop(); }});
};

TEST_F(ServingTest, SaysThatItExitsOnlyWhenNothingKeepsIt) {
  const std::string id = startHeldJob();
  ::testing::internal::CaptureStderr();
  std::thread serving([this] { serve(); });
  delegate_->scheduleIdleExit();
  timers_.advance(HelperXPCListenerDelegate::kIdlePeriod);
  EXPECT_TRUE(eventually([this] { return listener_.resumed == 1; }));
  EXPECT_EQ(phase(id), Phase::running);
  release();
  EXPECT_TRUE(eventually([&] { return phase(id) == Phase::cancelled; })) << "it was asked to stop";
  EXPECT_FALSE(std::filesystem::exists(image_));
  const std::string next = start();
  EXPECT_TRUE(eventually([&] { return phase(next) == Phase::finished; })) << "it serves as before";

  // A client that is accepted when the idle period is over already.
  testing::FakeConnection client(501);
  delegate_->shouldAcceptNewConnection(client);
  loop_.stop();
  EXPECT_TRUE(eventually([this] { return listener_.resumed == 2; }));
  EXPECT_EQ(listener_.suspended, 2);
  client.invalidate();
  timers_.advance(HelperXPCListenerDelegate::kIdlePeriod);
  serving.join();
  EXPECT_EQ(listener_.suspended, 3);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "MolvaneHelper: idle but still serving, as device job " + id +
                " does not stop\n"
                "MolvaneHelper: connection invalidated\n"
                "MolvaneHelper: idle, exiting\n");
  EXPECT_THROW(start(), std::system_error);
}

TEST_F(ServingTest, ASignalEndsItInOrderAndAJobThatDoesNotStopWithTheSignal) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    EXPECT_EXIT(
        {
          static_cast<void>(startHeldJob());
          ::kill(::getpid(), signal);
          serve();
        },
        ::testing::KilledBySignal(signal),
        "ending by signal " + std::to_string(signal) + " although device job .* does not stop");
  }
  const std::string id = startHeldJob();
  testing::FakeConnection client(501);
  delegate_->shouldAcceptNewConnection(client);
  ::testing::internal::CaptureStderr();
  ::kill(::getpid(), SIGTERM);
  std::thread serving([this] { serveUntilEnd({loop_, listener_, *delegate_, jobs_}); });
  EXPECT_TRUE(eventually([this] { return listener_.suspended == 1; }));
  ::kill(::getpid(), SIGHUP);  // Another signal meanwhile is of no account.
  release();
  serving.join();
  EXPECT_EQ(phase(id), Phase::cancelled);
  EXPECT_FALSE(std::filesystem::exists(image_));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace molvane
