#include "Platform/linux/RememberedChecks.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace molvane {
namespace {

RememberedCheck check(ino_t inode, const std::string& requirement = "r", std::time_t validUntil = 1) {
  RememberedCheck check;
  check.executable.inode = inode;
  check.requirement = requirement;
  check.validUntil = validUntil;
  return check;
}

TEST(RememberedChecksTest, FindsTheSameFileInTheSameStateAndTheSameRequirementOnly) {
  RememberedChecks checks;
  const RememberedCheck first = check(1);
  checks.remember(first);
  ASSERT_NE(checks.find(first.executable, "r"), nullptr);
  EXPECT_EQ(checks.find(first.executable, "s"), nullptr);
  const std::vector<void (*)(FileIdentity&)> changes = {
      [](FileIdentity& identity) { identity.device = 7; }, [](FileIdentity& identity) { identity.inode = 7; },
      [](FileIdentity& identity) { identity.size = 7; },
      [](FileIdentity& identity) { identity.modifiedNanoseconds = 7; },
      [](FileIdentity& identity) { identity.statusChangedNanoseconds = 7; }};
  for (const auto change : changes) {
    FileIdentity other = first.executable;
    change(other);
    EXPECT_EQ(checks.find(other, "r"), nullptr);
  }
}

TEST(RememberedChecksTest, TheNewerCheckReplacesTheOlderAndTheLeastUsedMakesRoom) {
  RememberedChecks checks;
  for (ino_t inode = 0; inode < RememberedChecks::kCapacity; ++inode) checks.remember(check(inode));
  checks.remember(check(0, "r", 2));
  EXPECT_EQ(checks.find(check(0).executable, "r")->validUntil, 2);

  checks.remember(check(100));
  EXPECT_EQ(checks.find(check(1).executable, "r"), nullptr);
  EXPECT_NE(checks.find(check(0).executable, "r"), nullptr);
  EXPECT_NE(checks.find(check(2).executable, "r"), nullptr);
  EXPECT_NE(checks.find(check(100).executable, "r"), nullptr);
}

TEST(RememberedChecksTest, AFileIsSettledOnceALaterChangeWouldShow) {
  FileIdentity identity;
  identity.statusChangedNanoseconds = 1000'000'000'000;
  EXPECT_FALSE(isSettled(identity, 999));
  EXPECT_FALSE(isSettled(identity, 1002));
  EXPECT_TRUE(isSettled(identity, 1003));
}

}  // namespace
}  // namespace molvane
