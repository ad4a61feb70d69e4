// Jobs as such: many at once, clients that come and go, documents that make no sense.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "Devices.hpp"
#include "RawClient.hpp"
#include "Terminal.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;
using testing::StartsWith;

constexpr std::size_t kMiB = std::size_t{1} << 20;

struct DeviceJobs : testing::Test {
  void SetUp() override {
    if (!hasDisks()) GTEST_SKIP() << "this machine lends no loop devices";
  }
};

TEST_F(DeviceJobs, TwentyAtOnceEndAsIfTheyWereAlone) {
  const AttachedDisk source("disk7", 6 * kMiB);
  const std::string content = noise(6 * kMiB);
  source.setContent(content);
  const AttachedDisk target("disk8", 8 * kMiB);
  const std::string image = annsFile("system.img", noise(5 * kMiB, 2));
  device({"status", "warm"});
  const std::size_t descriptors = openDescriptors(helperProcess().value());

  std::vector<std::string> jobs;
  for (int i = 0; i < 19; ++i) {
    const std::string file = "/Users/ann/copy" + std::to_string(i) + ".img";
    fs::remove(file);
    jobs.push_back(startJob({"image", "disk7", file}));
  }
  jobs.push_back(startJob({"write", "--yes", image, "disk8"}));
  for (const std::string& job : jobs) {
    const nlohmann::json status = endOf(job);
    EXPECT_EQ(status["phase"], "finished") << status;
    EXPECT_EQ(status["sha256"], job == jobs.back() ? sha256(readFile(image)) : sha256(content));
  }
  for (int i = 0; i < 19; ++i) {
    const std::string file = "/Users/ann/copy" + std::to_string(i) + ".img";
    EXPECT_TRUE(readFile(file) == content) << file;
    fs::remove(file);
  }
  EXPECT_TRUE(eventually([&] { return openDescriptors(helperProcess().value()) <= descriptors; }));
}

TEST_F(DeviceJobs, JobOutlivesItsClient) {
  if (!canFail()) GTEST_SKIP() << "this machine has no nbdkit, nbdfuse or /dev/fuse";
  const AttachedDisk disk("disk7", 16 * kMiB, {"--faulty"});
  disk.tell("hold-writes 8192");
  const std::string image = annsFile("system.img", noise(8 * kMiB));
  const std::string job = startJob({"write", "--yes", image, "disk7"});
  {
    // One that is killed while it watches, too.
    annsFile("events", "");
    Program watcher(
        {"/bin/sh", "-c", "exec \"$@\" >>/Users/ann/events", "sh", kClient, "--json", "device", "watch", job},
        kAnn);
    ASSERT_TRUE(
        eventually([] { return readFile("/Users/ann/events").find("running") != std::string::npos; }));
    watcher.kill(SIGKILL);
    watcher.wait();
  }
  EXPECT_EQ(statusOf(job)["phase"], "running");
  disk.tell("");
  EXPECT_EQ(device({"watch", job}).status, 0) << "and another client sees the end";
  EXPECT_EQ(statusOf(job)["sha256"], sha256(readFile(image)));
}

TEST_F(DeviceJobs, HelperThatDiesIsToldOf) {
  if (!canFail()) GTEST_SKIP() << "this machine has no nbdkit, nbdfuse or /dev/fuse";
  const AttachedDisk disk("disk7", 16 * kMiB, {"--faulty"});
  disk.tell("hold-writes 0");
  annsFile("events", "");
  const std::string image = annsFile("system.img", noise(8 * kMiB));
  Program client({"/bin/sh", "-c", "exec \"$@\" >>/Users/ann/events", "sh", kClient, "--json", "device",
                  "write", "--yes", image, "disk7"},
                 kAnn);
  ASSERT_TRUE(eventually([] { return readFile("/Users/ann/events").find("running") != std::string::npos; }));
  const fs::path marker = "/run/com.molvane.helper/writing/disk7";
  EXPECT_TRUE(fs::exists(marker));
  // The one that dies can end only when the disk has answered its request.
  ::kill(helperProcess().value(), SIGKILL);
  disk.tell("");
  const Outcome outcome = client.wait();
  EXPECT_EQ(outcome.status, 3) << testing::PrintToString(outcome);
  EXPECT_THAT(outcome.err, testing::HasSubstr("The connection to the helper was lost."));
  device({"status", "unknown"});
  EXPECT_FALSE(fs::exists(marker)) << "the next helper takes back what this one has asked for";
}

// As a service manager does, or a person at a terminal.
TEST_F(DeviceJobs, EndInOrderWhenASignalEndsTheHelper) {
  if (!canFail()) GTEST_SKIP() << "this machine has no nbdkit, nbdfuse or /dev/fuse";
  const std::string copy = "/Users/ann/copy.img";
  fs::remove(copy);
  const AttachedDisk source("disk7", 32 * kMiB, {"--faulty"});
  const AttachedDisk target("disk8", 32 * kMiB, {"--faulty"});
  const AttachedDisk backup("disk9", 32 * kMiB, {"--volume", "/Volumes/Backup"});
  const ToolBehaviour hangs("tmutil", "hang\n");
  source.tell("slow 20");
  target.tell("slow 20");
  LogFollower tools(kToolLog);
  const std::string reading = startJob({"image", "disk7", copy});
  const std::string writing = startJob({"write", "--yes", annsFile("system.img", noise(32 * kMiB)), "disk8"});
  startJob({"backup-destination", "/Volumes/Backup"});
  tools.waitFor("tmutil");
  for (const std::string& job : {reading, writing}) {
    ASSERT_TRUE(eventually([&] { return statusOf(job)["bytesDone"] > 0; })) << statusOf(job);
  }
  const fs::path marker = "/run/com.molvane.helper/writing/disk8";
  EXPECT_TRUE(fs::exists(copy) && fs::exists(marker));

  const pid_t helper = helperProcess().value();
  LogFollower manager(kManagerLog);
  ::kill(helper, SIGTERM);
  EXPECT_EQ(manager.waitFor("exited"), "exited " + std::to_string(helper) + " status 0");
  EXPECT_FALSE(fs::exists(copy) || fs::exists(marker));
  EXPECT_EQ(run({"/usr/bin/pkill", "-x", "sleep"}).status, 0) << "the tool went with the helper";
  run({"/usr/sbin/diskutil", "unmountDisk", "disk9"});
  EXPECT_EQ(molvanectl({"ping"}).out, "pong\n");
}

TEST_F(DeviceJobs, PersonAtATerminalIsAskedAndSeesABar) {
  if (!canFail()) GTEST_SKIP() << "this machine has no nbdkit, nbdfuse or /dev/fuse";
  const AttachedDisk disk("disk7", 16 * kMiB, {"--faulty"});
  const std::string image = annsFile("system.img", noise(8 * kMiB));
  const std::vector<std::string> command = {kClient, "device", "write", image, "disk7"};
  {
    Terminal terminal(command, kAnn);
    terminal.answer("molvanectl: Everything on disk7 will be erased. Type disk7 to go on.", "disk8");
    const Outcome outcome = terminal.wait();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, testing::EndsWith("Nothing was changed.\n"));
    EXPECT_TRUE(disk.content() == std::string(16 * kMiB, '\0'));
  }
  const Outcome refused = Terminal({kClient, "device", "write", image, "disk1"}, kAnn).wait();
  EXPECT_EQ(refused.out, "molvanectl: disk1 is an internal disk. Refused. (com.molvane.helper.policy, 10)\n");
  disk.tell("hold-writes 8192");
  Terminal terminal(command, kAnn);
  terminal.answer("to go on.", "disk7");
  terminal.waitFor(" 50%");
  disk.tell("");
  const Outcome outcome = terminal.wait();
  EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
  EXPECT_THAT(outcome.out, testing::EndsWith("\nSHA-256 " + sha256(readFile(image)) + "\n"));
}

TEST_F(DeviceJobs, UnknownJobsAndDocumentsThatAreNone) {
  const Outcome outcome = device({"status", "3F2504E0-4F89-41D3-9A0C-0305E82C3301"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, testing::EndsWith("(com.molvane.helper, 8)\n"));
  EXPECT_EQ(device({"cancel", "nonsense"}).status, 1);

  for (const std::string document :
       {"", "null", "[]", "{}", R"({"writeImage":{"sourcePath":"/Users/ann/x.img","targetBSD":"disk4"}})",
        R"({"imageDevice":{"sourceBSD":"disk4","destinationPath":"/tmp/x.img","ownerUID":-1}})",
        R"({"setTimeMachineDestination":{"volumePath":"/"},"imageDevice":{}})"}) {
    RawClient client;
    client.authenticate();
    const auto length = static_cast<std::uint32_t>(document.size());
    std::string body(reinterpret_cast<const char*>(&length), sizeof length);
    const RawClient::Reply reply = client.call("StartDeviceJob", "ay", body + document);
    EXPECT_TRUE(reply.error) << document;
    EXPECT_THAT(stringAt(reply.body, 0), StartsWith("Bad device job: ")) << document;
  }
}

}  // namespace
}  // namespace molvane::e2e
