#include "HelperKit/Devices/DeviceJobRunner.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <thread>

#include "Base/JsonCoding.hpp"
#include "Base/Sha256.hpp"
#include "HelperKit/Accounts/CompanyAdminKeeper.hpp"
#include "HelperKit/Devices/ChunkStream.hpp"
#include "HelperKit/Devices/testing/FakeDisk.hpp"
#include "HelperKit/Service/HelperPathPolicy.hpp"
#include "HelperKit/Service/HelperService.hpp"
#include "HelperKit/Service/PeerScopedHelper.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::FakeDisk;
using testing::noise;
using Phase = DeviceJobStatus::Phase;

constexpr std::size_t kChunk = ChunkBuffer::kChunkSize;
constexpr std::int64_t kSize = 2 * kChunk;
const std::uint32_t kPeer = geteuid() == 0 ? 501 : geteuid();  // root alone can act for others

class KnownDisks final : public DeviceFactsProviding {
 public:
  std::optional<DeviceFacts> facts(const std::string& name) const override {
    DeviceFacts facts{.bsdName = name, .isWhole = true, .sizeBytes = kSize};
    if (name == "disk4") return facts;
    facts.isInternal = name == "disk0";
    facts.isVirtual = name == "disk9" || name == "disk0";
    if (facts.isInternal || facts.isVirtual) return facts;
    return std::nullopt;
  }
  std::set<std::string> wholeDisks(const std::string& name) const override { return {name}; }
  std::set<std::string> bootWholeDisks() const override { return {}; }
  std::set<std::string> systemWholeDisks() const override { return {}; }
};

class DeviceJobRunnerTest : public ::testing::Test {
 protected:
  DeviceJobRunnerTest() {
    std::ofstream(image_) << bytes_;
    if (geteuid() == 0) {
      for (const std::string& path : {folder_.path(), image_}) {
        EXPECT_EQ(chown(path.c_str(), kPeer, static_cast<gid_t>(-1)), 0);
      }
    }
  }

  static DevicePolicy policy() {
    return {.facts = std::make_shared<KnownDisks>(),
            .bootDisks = {},
            .fileManager = makeDeviceFileAccess(),
            .codeSigning = nullptr};
  }

  [[nodiscard]] DeviceJobSpec write(const std::string& disk = "disk4", bool verify = true) const {
    return {WriteImage{image_, disk, verify}};
  }
  [[nodiscard]] DeviceJobSpec copy(const std::string& name, std::uint32_t owner = 0) const {
    return {ImageDevice{"disk4", folder_.path() + "/" + name, owner}};
  }

  DeviceJobStatus ended(const std::string& id) const {
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (!runner_->status(id).value().isTerminal() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(1ms);
    }
    return runner_->status(id).value();
  }

  // Keeps every job at its first request to a disk.
  void holdJobs() {
    disk_.onRequest = [this](FakeDisk::Request, std::int64_t) {
      ++arrived_;
      released_.wait();
    };
  }
  void release() { release_.set_value(); }
  void waitForArrival() const {
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (arrived_ == 0 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    EXPECT_GT(arrived_, 0);
  }

  TemporaryFolder folder_;
  const std::string image_ = folder_.path() + "/image.img";
  const std::string bytes_ = noise(kChunk + 100);
  FakeDisk disk_{noise(kSize, 2)};
  std::promise<void> release_;
  const std::shared_future<void> released_ = release_.get_future().share();
  std::atomic<int> arrived_ = 0;
  std::unique_ptr<DeviceJobRunner> runner_ = std::make_unique<DeviceJobRunner>(policy, disk_.opener());
};

TEST_F(DeviceJobRunnerTest, RunsAJobAndKeepsItsStatus) {
  const std::string id = runner_->start(write(), kPeer);
  EXPECT_EQ(id.size(), 36U);
  EXPECT_EQ(runner_->status(id)->bytesTotal, static_cast<std::int64_t>(bytes_.size()));
  const DeviceJobStatus status = ended(id);
  EXPECT_EQ(status.phase, Phase::finished) << status.log;
  EXPECT_EQ(status.sha256, hexText(sha256(bytes_)));
  EXPECT_FALSE(runner_->cancel(id));

  const std::string other = runner_->start(copy("a.img", 502), kPeer);
  EXPECT_NE(other, id);
  EXPECT_EQ(runner_->status(other)->bytesTotal, kSize);
  EXPECT_EQ(ended(other).phase, Phase::finished);
  EXPECT_EQ(ended(runner_->start(copy("b.img"), kPeer)).phase, Phase::finished);
  EXPECT_EQ(ended(runner_->start(copy("c.img", 4294967295), kPeer)).phase, Phase::finished);
  EXPECT_EQ(runner_->status(id), status);
  EXPECT_EQ(runner_->status("no such job"), std::nullopt);
  EXPECT_FALSE(runner_->cancel("no such job"));
  if (geteuid() != 0) return;
  struct stat file {};
  ASSERT_EQ(stat((folder_.path() + "/a.img").c_str(), &file), 0);
  EXPECT_EQ(file.st_uid, 502U);
  for (const std::string name : {"/b.img", "/c.img"}) {
    ASSERT_EQ(stat((folder_.path() + name).c_str(), &file), 0);
    EXPECT_EQ(file.st_uid, kPeer) << name;
  }
}

TEST_F(DeviceJobRunnerTest, CancelsOnceForEveryRequestUntilTheJobHasEnded) {
  holdJobs();
  const std::string id = runner_->start(copy("a.img"), kPeer);
  waitForArrival();
  EXPECT_TRUE(runner_->cancel(id));
  EXPECT_TRUE(runner_->cancel(id));
  EXPECT_EQ(runner_->status(id)->phase, Phase::running);
  release();
  EXPECT_EQ(ended(id).phase, Phase::cancelled);
  EXPECT_FALSE(runner_->cancel(id));
  EXPECT_FALSE(fs::exists(folder_.path() + "/a.img"));
}

TEST_F(DeviceJobRunnerTest, TwentyJobsRunAtOnceAndOneDoesNotDisturbTheOthers) {
  std::mutex mutex;
  // Every job comes to its disk before any may go on: they all run at once.
  const RawDeviceOpener opener = [&](const RawDeviceRequest& request) {
    ++arrived_;
    released_.wait();
    const std::lock_guard lock(mutex);  // the fake notes who opened it
    return disk_.opener()(request);
  };
  DeviceJobRunner runner(policy, opener);
  std::vector<std::string> ids;
  for (int i = 0; i < 20; ++i) ids.push_back(runner.start(copy(std::to_string(i) + ".img"), kPeer));
  const auto deadline = std::chrono::steady_clock::now() + 60s;
  while (arrived_ < 20 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  EXPECT_EQ(arrived_, 20);
  EXPECT_TRUE(runner.cancel(ids[7]));
  release();
  const std::string digest = hexText(sha256(disk_.content));
  for (std::size_t i = 0; i < ids.size(); ++i) {
    while (!runner.status(ids[i])->isTerminal() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(1ms);
    }
    const DeviceJobStatus status = runner.status(ids[i]).value();
    EXPECT_EQ(status.phase, i == 7 ? Phase::cancelled : Phase::finished) << status.log;
    EXPECT_EQ(status.sha256, i == 7 ? std::nullopt : std::optional(digest));
  }
}

TEST_F(DeviceJobRunnerTest, EndsItsJobsWhenItGoes) {
  // More requests than anybody has patience for.
  disk_.mostAtOnce = 1;
  disk_.onRequest = [this](FakeDisk::Request, std::int64_t) { ++arrived_; };
  static_cast<void>(runner_->start(copy("a.img"), kPeer));
  waitForArrival();
  runner_.reset();
  EXPECT_EQ(disk_.openCount, 0);
  EXPECT_FALSE(fs::exists(folder_.path() + "/a.img"));
}

TEST_F(DeviceJobRunnerTest, AnswersThroughTheService) {
  const auto service = std::make_shared<HelperService>(HelperPathPolicy::fixtureAllowlist("/nonexistent"),
                                                       std::set<std::string>{}, std::move(runner_),
                                                       std::make_unique<CompanyAdminKeeper>("/nonexistent"));
  PeerScopedHelper helper(service, kPeer);
  const auto data = [](const std::string& text) { return Data(text.begin(), text.end()); };
  const auto start = [&](const Data& spec) {
    std::pair<std::optional<std::string>, OptionalError> answer;
    helper.startDeviceJob(spec, [&](const std::optional<std::string>& id, const OptionalError& error) {
      answer = {id, error};
    });
    return answer;
  };
  const auto refusal = [&](const DeviceJobSpec& spec) { return start(data(encodedJson(spec))).second; };

  const auto malformed = start(data("{}"));
  EXPECT_EQ(malformed.first, std::nullopt);
  EXPECT_EQ(malformed.second->code, 7);
  EXPECT_EQ(malformed.second->domain, "com.molvane.helper");
  EXPECT_EQ(malformed.second->localizedDescription.rfind("Bad device job: ", 0), 0U);
  const std::string policyDomain = "com.molvane.helper.policy";
  EXPECT_EQ(refusal(write("disk7")), (NSError{policyDomain, 10, "Unknown device: disk7"}));
  EXPECT_EQ(refusal(write("disk0")), (NSError{policyDomain, 10, "disk0 is an internal disk. Refused."}));
  EXPECT_EQ(refusal(write("disk9")),
            (NSError{policyDomain, 10, "disk9 is an attached disk image, not a drive. Refused."}));
  EXPECT_EQ(refusal({ImageDevice{"disk4", image_, 0}}),
            (NSError{policyDomain, 10, "Destination already exists: " + image_}));

  const auto started = start(data(encodedJson(write())));
  ASSERT_EQ(started.second, std::nullopt);
  DeviceJobStatus status;
  const auto deadline = std::chrono::steady_clock::now() + 60s;
  while (!status.isTerminal() && std::chrono::steady_clock::now() < deadline) {
    helper.deviceJobStatus(*started.first, [&](const std::optional<Data>& document, const OptionalError&) {
      status = decodedJson<DeviceJobStatus>(std::string(document.value().begin(), document.value().end()));
    });
  }
  EXPECT_EQ(status.phase, Phase::finished);
  helper.cancelDeviceJob(*started.first, [](bool accepted) { EXPECT_FALSE(accepted); });
  helper.deviceJobStatus("x", [](const std::optional<Data>& document, const OptionalError& error) {
    EXPECT_EQ(document, std::nullopt);
    EXPECT_EQ(error, (NSError{"com.molvane.helper", 8, "Unknown job: x"}));
  });
}

}  // namespace
}  // namespace molvane
