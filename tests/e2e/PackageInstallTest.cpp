#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "Inbox.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

const fs::path kInstalled = "/usr/local/share/from-package";

Outcome install(const std::string& path, bool verified = true) {
  if (verified) return molvanectl({"package", "install", path});
  return molvanectl({"package", "install", "--unverified", path});
}

void expectRefused(const std::string& path, const std::string& sentence, bool verified = true) {
  const Outcome outcome = install(path, verified);
  EXPECT_EQ(outcome.status, 1) << path;
  EXPECT_EQ(outcome.err, "molvanectl: " + sentence + " (com.molvane.helper.policy, 12)\n");
  EXPECT_THAT(namesIn(kPackageStaging), IsEmpty()) << path;
}

class PackageInstall : public testing::Test {
 protected:
  ~PackageInstall() override { fs::remove(kInstalled); }

  // What the package put there, empty for none; taken away for the next one.
  static std::string installed() {
    if (!fs::exists(kInstalled)) return {};
    std::string content = readFile(kInstalled);
    fs::remove(kInstalled);
    return content;
  }

  Inbox inbox_;
};

TEST_F(PackageInstall, VerifiedAndUnverified) {
  const std::string good = inbox_.addPackage("sub folder.pkg", kInstalled, "good");
  const Outcome outcome = install(good);
  EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
  EXPECT_THAT(outcome.out, StartsWith("installer: Package name is com.example.package\n"));
  EXPECT_EQ(installed(), "good");

  const std::string plain = inbox_.addPackage("plain.pkg", kInstalled, "plain", "");
  EXPECT_THAT(install(plain).err,
              StartsWith("molvanectl: macOS would not open this package (it must be signed "
                         "with a Developer ID and notarized). /Library/"));
  EXPECT_EQ(installed(), "");
  const std::string unmarked = inbox_.addPackage("unmarked.pkg", kInstalled, "unmarked", "unmarked");
  EXPECT_EQ(install(unmarked).status, 1);
  EXPECT_EQ(install(plain, false).status, 0);
  EXPECT_EQ(installed(), "plain");
  EXPECT_TRUE(fs::exists(plain) && fs::exists(good));
  EXPECT_THAT(namesIn(kPackageStaging), IsEmpty());
}

TEST_F(PackageInstall, RefusesWhatIsNoPackageOfThePersonsInTheInbox) {
  const std::string in = inbox_.path().string() + "/";
  const std::string good = inbox_.addPackage("good.pkg", kInstalled, "x");
  fs::copy_file(good, "/Users/ann/good.pkg");
  fs::copy_file(good, in + "bobs.pkg");
  ASSERT_EQ(mknod((in + "device.pkg").c_str(), S_IFBLK | 0666, makedev(7, 0)), 0);
  giveTo(in, kAnn);
  giveTo(in + "bobs.pkg", kBob);
  fs::create_directory_symlink(in, in + "way");

  expectRefused("/Users/ann/good.pkg",
                "Only packages received in company mode can be installed: /Users/ann/good.pkg");
  expectRefused(in + "way/good.pkg", "Refusing to follow a symlink: " + in + "way/good.pkg");
  expectRefused(in + "device.pkg", "Not an installer package: " + in + "device.pkg", false);
  expectRefused(in + "bobs.pkg", "The package does not belong to the person logged in: " + in + "bobs.pkg");
  EXPECT_EQ(installed(), "");
  fs::remove("/Users/ann/good.pkg");

  // The inbox itself leads elsewhere.
  fs::rename(inbox_.path(), "/Users/ann/moved");
  fs::create_directory_symlink("/Users/ann/moved", inbox_.path());
  expectRefused(in + "good.pkg", "Refusing to follow a symlink: " + in + "good.pkg");
  fs::remove(inbox_.path());
  fs::remove_all("/Users/ann/moved");
}

TEST_F(PackageInstall, ToolsThatFailOrFlood) {
  const std::string package = inbox_.addPackage("a.pkg", kInstalled, "x");
  {
    const ToolBehaviour fails("installer", "print installer: it broke\nexit 1\n");
    expectRefused(package, "installer: it broke");
  }
  {
    const ToolBehaviour dies("spctl", "print half\nsignal KILL\n");
    expectRefused(
        package,
        "macOS would not open this package (it must be signed with a Developer ID and notarized). half");
  }
  {
    const ToolBehaviour drowns("spctl", "flood 25\nexit 3\n");
    EXPECT_THAT(install(package).err, HasSubstr("[output cut after 20 MiB] (com.molvane.helper.policy, 12)"));
  }
  const ToolBehaviour floods("installer", "flood 5\n");
  EXPECT_EQ(install(package).status, 0);
  EXPECT_EQ(installed(), "x");
}

// A copy in use survives the requests of others; one of a killed helper does not.
TEST_F(PackageInstall, SweepsWhatAKilledHelperLeftAndNothingElse) {
  const std::string package = inbox_.addPackage("a.pkg", kInstalled, "x");
  std::string staged;
  {
    const ToolBehaviour hangs("spctl", "ignore-term\nhang\n");
    LogFollower tools(kToolLog);
    Program client({kClient, "package", "install", package}, kAnn);
    tools.waitFor("/usr/sbin/spctl");
    const auto copies = namesIn(kPackageStaging);
    ASSERT_THAT(copies, SizeIs(1));
    staged = copies[0];
    struct stat status {};
    ASSERT_EQ(stat((kPackageStaging / staged).c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 0U);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_EQ(readFile(kPackageStaging / staged), readFile(package));

    EXPECT_EQ(install(package, false).status, 0);
    EXPECT_EQ(installed(), "x");
    EXPECT_EQ(namesIn(kPackageStaging), copies);
    endHelper();
  }
  writeFile(kPackageStaging / "not ours", "kept");
  ASSERT_TRUE(fs::exists(kPackageStaging / staged));
  EXPECT_EQ(install(package).status, 0);
  EXPECT_THAT(namesIn(kPackageStaging), testing::ElementsAre("not ours"));
}

TEST_F(PackageInstall, AFullStagingFolderIsAnError) {
  const std::string package = inbox_.path() / "large.pkg";
  writeFile(package, "xar!" + std::string(3'000'000, 'x'));
  giveTo(package, kAnn);
  fs::create_directories(kPackageStaging);
  ASSERT_EQ(mount("tmpfs", kPackageStaging.c_str(), "tmpfs", 0, "size=1m"), 0);
  EXPECT_THAT(install(package).err, HasSubstr("(NSPOSIXErrorDomain, 28)"));
  EXPECT_THAT(namesIn(kPackageStaging), IsEmpty());
  ASSERT_EQ(umount(kPackageStaging.c_str()), 0);
}

// Ann swaps her package, or a folder on the way, for links to packages of Bob's and root's while it is
// installed.
TEST_F(PackageInstall, WhatAnnSwapsIsNeverInstalled) {
  constexpr int kRounds = 60;
  const Inbox bobs(kBob, "/Users/bob");
  static_cast<void>(bobs.addPackage("a.pkg", kInstalled, "bob's", ""));
  fs::create_directory(bobs / "sub");
  fs::copy_file(bobs / "a.pkg", bobs / "sub/a.pkg");
  giveTo(bobs / "sub", kBob);
  int installedHers = 0;
  int refused = 0;
  const fs::path inbox = inbox_.path();
  const std::pair<fs::path, fs::path> swaps[] = {
      {inbox / "sub/a.pkg", bobs / "a.pkg"}, {inbox / "sub", bobs.path()}, {inbox, bobs.path()}};
  for (const auto& [swapped, target] : swaps) {
    fs::create_directory(inbox_ / "sub");
    fs::rename(inbox_.addPackage("a.pkg", kInstalled, "hers", ""), inbox_ / "sub/a.pkg");
    const fs::path link = inbox.parent_path() / "link";
    fs::create_symlink(target, link);
    giveTo(inbox.parent_path(), kAnn);
    {
      const auto attacker = swapping(kAnn, swapped, link);
      for (int round = 0; round < kRounds; ++round) {
        const Outcome outcome = install(inbox_ / "sub/a.pkg", false);
        const std::string content = installed();
        ASSERT_NE(content, "bob's") << swapped << " in round " << round;
        EXPECT_EQ(outcome.status == 0, content == "hers") << testing::PrintToString(outcome);
        ++(outcome.status == 0 ? installedHers : refused);
      }
    }
    // Whichever of the two is where is all the same now.
    fs::remove_all(link);
    fs::remove_all(inbox);
    fs::create_directory(inbox);
  }
  EXPECT_GT(installedHers, 0);
  EXPECT_GT(refused, 0);
  EXPECT_THAT(namesIn(kPackageStaging), IsEmpty());
}

}  // namespace
}  // namespace molvane::e2e
