#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Harness.hpp"
#include "HeldTool.hpp"
#include "RawClient.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;
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

// It has more to say than a pipe holds, after the task, and after the helper.
TEST(Maintenance, WhatATaskLeavesBehindGoesOnTalking) {
  const fs::path mark = "/run/macroot/spoken";
  const ChangedTool starts("/usr/sbin/purge");
  writeFile("/usr/sbin/purge", "#!/bin/bash\n(: </run/macroot/hold; yes | head -c 1000000 && touch " +
                                   mark.string() + ") &\necho early\n");
  fs::permissions("/usr/sbin/purge", fs::perms(0755));
  const auto [succeeded, transcript] = runTask("purge-memory");
  EXPECT_TRUE(succeeded);
  EXPECT_EQ(transcript, "$ purge \nearly\n");
  endHelper();
  HeldTool::letGo();
  EXPECT_TRUE(eventually([&] { return fs::exists(mark); }));
  fs::remove(mark);
}

}  // namespace
}  // namespace molvane::e2e
