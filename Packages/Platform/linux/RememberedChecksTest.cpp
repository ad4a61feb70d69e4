#include "Platform/linux/RememberedChecks.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <vector>

#include "Platform/linux/RememberedChecksCoding.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

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

class RememberedChecksFile : public ::testing::Test {
 protected:
  RememberedChecksFile() {
    RememberedChecks checks(folder_.path());
    checks.remember(known_);
    checks.remember(check(1));
  }

  [[nodiscard]] bool isBelieved() const {
    return RememberedChecks(folder_.path()).find(known_.executable, known_.requirement) != nullptr;
  }
  void write(const std::string& document) const { std::ofstream(path_) << document; }
  [[nodiscard]] std::string document() const {
    std::stringstream text;
    text << std::ifstream(path_).rdbuf();
    return text.str();
  }

  const RememberedCheck known_{{~dev_t{0}, ~ino_t{0}, 5, -7, 11},
                               "anchor \"ä\"",
                               "/app.codesig",
                               {1, 2, 3, 4, 5},
                               {6, 7, 8, 9, 10},
                               -12,
                               4'000'000'000};
  TemporaryFolder folder_;
  const std::string path_ = folder_.path() + "/checked-peers.json";
};

TEST_F(RememberedChecksFile, OutlivesTheProcessWithEveryField) {
  RememberedChecks checks(folder_.path());
  const auto found = checks.find(known_.executable, known_.requirement);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->signaturePath, known_.signaturePath);
  EXPECT_EQ(found->signature, known_.signature);
  EXPECT_EQ(found->anchor, known_.anchor);
  EXPECT_EQ(found->validFrom, known_.validFrom);
  EXPECT_EQ(found->validUntil, known_.validUntil);
  EXPECT_NE(checks.find(check(1).executable, "r"), nullptr);
  EXPECT_EQ(fs::status(path_).permissions(), fs::perms::owner_read | fs::perms::owner_write);

  for (ino_t inode = 0; inode < 3 * RememberedChecks::kCapacity; ++inode) checks.remember(check(inode));
  EXPECT_EQ(decodedChecks(document(), bootIdentifier()).size(), RememberedChecks::kCapacity);
}

TEST_F(RememberedChecksFile, IsNotBelievedUnlessItIsOursAndWholeAndOfThisRunOfTheSystem) {
  const std::string good = document();
  ASSERT_TRUE(isBelieved());
  const std::vector<std::pair<const char*, std::function<void()>>> faults = {
      {"cut off", [&] { write(good.substr(0, good.size() / 2)); }},
      {"empty", [&] { write(""); }},
      {"another run", [&] { write(std::string(good).replace(good.find("boot\":\"") + 7, 1, "x")); }},
      {"a field missing", [&] { write(std::string(good).replace(good.find("validUntil"), 5, "other")); }},
      {"too large", [&] { write(good + std::string(std::size_t{1} << 20U, ' ')); }},
      {"readable by others", [&] { chmod(path_.c_str(), 0644); }},
      {"a link",
       [&] {
         fs::rename(path_, folder_.path() + "/elsewhere");
         fs::create_symlink("elsewhere", path_);
       }},
      {"a folder",
       [&] {
         fs::remove(path_);
         fs::create_directory(path_);
       }},
  };
  for (const auto& [what, damage] : faults) {
    damage();
    EXPECT_FALSE(isBelieved()) << what;
    fs::remove_all(path_);
    RememberedChecks(folder_.path()).remember(known_);
    EXPECT_TRUE(isBelieved()) << "mended after: " << what;
  }
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
