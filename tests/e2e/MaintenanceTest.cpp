#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "Harness.hpp"
#include "RawClient.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::StartsWith;

struct TaskReply {
  bool succeeded;
  std::string transcript;
};

TaskReply runTask(const std::string& task) {
  RawClient client;
  client.authenticate();
  const auto reply = client.call("RunMaintenanceTask", "s", marshalled(task));
  if (reply.error) throw std::runtime_error(stringAt(reply.body, 0));
  return {booleanAt(reply.body, 0), stringAt(reply.body, 4)};
}

// The tool is not there, or not as it should be, while this object lives.
class ChangedTool {
 public:
  explicit ChangedTool(fs::path tool) : tool_(std::move(tool)) {
    fs::rename(tool_, tool_.string() + ".kept");
  }
  ~ChangedTool() {
    std::error_code ignored;
    fs::rename(tool_.string() + ".kept", tool_, ignored);
  }
  ChangedTool(const ChangedTool&) = delete;
  ChangedTool& operator=(const ChangedTool&) = delete;

 private:
  fs::path tool_;
};

TEST(Maintenance, RunsTheCommandsOfATaskAsRootInOrder) {
  LogFollower tools(kToolLog);
  const auto [succeeded, transcript] = runTask("flush-dns");
  EXPECT_TRUE(succeeded);
  EXPECT_EQ(transcript,
            "$ dscacheutil -flushcache\n$ killall -HUP mDNSResponder\n"
            "No matching processes belonging to you were found\n");
  EXPECT_EQ(tools.waitFor("/usr/bin/"), "uid=0 /usr/bin/dscacheutil -flushcache");
  EXPECT_EQ(tools.waitFor("/usr/bin/"), "uid=0 /usr/bin/killall -HUP mDNSResponder");
}

TEST(Maintenance, EveryRootTaskSucceeds) {
  EXPECT_EQ(runTask("purge-memory").transcript, "$ purge \n");
  EXPECT_THAT(runTask("reindex-spotlight").transcript, StartsWith("$ mdutil -E /\n/:\n"));
  EXPECT_THAT(runTask("download-updates").transcript,
              StartsWith("$ softwareupdate --download --all\nSoftware Update Tool\n"));
  EXPECT_EQ(runTask("restart-mac").transcript, "$ shutdown -r +1\nShutdown at +1.\n");
}

TEST(Maintenance, ToolIsMissing) {
  const ChangedTool missing("/usr/sbin/purge");
  const auto [succeeded, transcript] = runTask("purge-memory");
  EXPECT_FALSE(succeeded);
  EXPECT_EQ(transcript,
            "$ purge \nThe operation couldn’t be completed. No such file or directory\nexit -1\n");
}

TEST(Maintenance, ToolIsNotExecutable) {
  const ChangedTool changed("/usr/sbin/purge");
  writeFile("/usr/sbin/purge", "#!/bin/sh\n");
  const auto [succeeded, transcript] = runTask("purge-memory");
  EXPECT_FALSE(succeeded);
  EXPECT_EQ(transcript, "$ purge \nThe operation couldn’t be completed. Permission denied\nexit -1\n");
}

TEST(Maintenance, MuchOutputArrivesWhole) {
  constexpr std::size_t kMebibytes = 16;
  const ToolBehaviour floods("purge", "flood " + std::to_string(kMebibytes) + "\nprint THE END\n");
  const auto [succeeded, transcript] = runTask("purge-memory");
  EXPECT_TRUE(succeeded);
  EXPECT_GE(transcript.size(), kMebibytes << 20);
  EXPECT_THAT(transcript.substr(transcript.size() - 40), EndsWith("THE END\n"));
}

TEST(Maintenance, OutputIsRepairedAndTrimmed) {
  const ToolBehaviour spoils("purge", "print  \ninvalid-utf8\nprint  \n");
  const auto [succeeded, transcript] = runTask("purge-memory");
  EXPECT_TRUE(succeeded);
  // One replacement character for each of the seven bytes, none of which can begin or go on here.
  std::string repaired;
  for (int i = 0; i < 7; ++i) repaired += "\xEF\xBF\xBD";
  EXPECT_EQ(transcript, "$ purge \nbefore " + repaired + " after\n");
}

TEST(Maintenance, ToolDiesByASignal) {
  const ToolBehaviour dies("purge", "print ouch\nsignal KILL\n");
  const auto [succeeded, transcript] = runTask("purge-memory");
  EXPECT_FALSE(succeeded);
  EXPECT_EQ(transcript, "$ purge \nouch\nexit 9\n");
}

TEST(Maintenance, GrandchildThatKeepsThePipeIsNotWaitedFor) {
  const ToolBehaviour leaves("purge", "print early\ngrandchild 3607\n");
  const auto [succeeded, transcript] = runTask("purge-memory");
  EXPECT_TRUE(succeeded);
  EXPECT_EQ(transcript, "$ purge \nearly\n");
  EXPECT_EQ(run({"/usr/bin/pkill", "-f", "^sleep 3607$"}).status, 0) << "the grandchild is gone";
}

}  // namespace
}  // namespace molvane::e2e
