#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>

#include "Harness.hpp"

namespace molvane::e2e {
namespace {

using testing::HasSubstr;

constexpr mode_t kPermissions = 07777;
constexpr gid_t kClientGroup = 399;

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status;
}

TEST(Deployment, SystemdAcceptsTheUnits) {
  if (!std::filesystem::exists("/usr/bin/systemd-analyze")) GTEST_SKIP() << "no systemd here";
  const Outcome units = run({"/usr/bin/systemd-analyze", "--man=no", "verify", "com.molvane.helper.socket",
                             "com.molvane.helper.service"});
  EXPECT_EQ(units.status, 0);
  EXPECT_EQ(units.err, "");
  const Outcome group = run(
      {"/usr/bin/systemd-sysusers", "--dry-run", MOLVANE_PREFIX "/lib/sysusers.d/com.molvane.helper.conf"});
  EXPECT_EQ(group.status, 0) << testing::PrintToString(group);
}

TEST(Deployment, ServiceNamesTheInstalledHelper) {
  const std::string service = readFile(MOLVANE_PREFIX "/lib/systemd/system/com.molvane.helper.service");
  EXPECT_THAT(service, HasSubstr("\nExecStart=" MOLVANE_LIBEXECDIR "/MolvaneHelper\n"));
  EXPECT_EQ(statusOf(MOLVANE_LIBEXECDIR "/MolvaneHelper").st_mode & kPermissions, 0755U);
}

TEST(Deployment, OnlyTheClientsGroupReachesTheSocket) {
  const auto socket = statusOf(kSocket);
  EXPECT_EQ(socket.st_mode & kPermissions, 0660U);
  EXPECT_EQ(socket.st_uid, 0U);
  EXPECT_EQ(socket.st_gid, kClientGroup);
  const auto client = statusOf(kClient);
  EXPECT_EQ(client.st_mode & kPermissions, 02755U);
  EXPECT_EQ(client.st_gid, kClientGroup);
}

TEST(Deployment, StagedInstallationLeavesTheGroupToWhoeverFinishesIt) {
  const std::string stage = "/tmp/stage";
  std::filesystem::remove_all(stage);
  const Outcome outcome = run({"/usr/bin/env", "DESTDIR=" + stage, "cmake", "--install",
                               std::getenv("MACROOT_BUILD"), "--component", "helper"});
  ASSERT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
  EXPECT_THAT(outcome.out, HasSubstr("chmod 2755 " + std::string(kClient)));
  for (const std::string file : {kClient, kInfoPlist, MOLVANE_LIBEXECDIR "/MolvaneHelper",
                                 MOLVANE_PREFIX "/lib/systemd/system/com.molvane.helper.socket",
                                 MOLVANE_PREFIX "/lib/systemd/system/com.molvane.helper.service",
                                 MOLVANE_PREFIX "/lib/udev/rules.d/60-com.molvane.helper.rules",
                                 MOLVANE_PREFIX "/lib/sysusers.d/com.molvane.helper.conf"}) {
    EXPECT_TRUE(std::filesystem::is_regular_file(stage + file)) << file;
  }
  EXPECT_EQ(statusOf(stage + kClient).st_mode & kPermissions, 0755U);
}

}  // namespace
}  // namespace molvane::e2e
