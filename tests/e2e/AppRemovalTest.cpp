#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include "Inbox.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;

const fs::path kAnns = "/Users/ann/Applications";
const fs::path kBobs = "/Users/bob/Applications";

class AppRemoval : public testing::Test {
 protected:
  AppRemoval() { clear(); }
  ~AppRemoval() override { clear(); }

  static void clear() {
    fs::remove_all(kAnns);
    fs::remove_all(kBobs);
    for (const auto& entry : fs::directory_iterator(kApplications)) fs::remove_all(entry);
    fs::create_directory(kAnns);
    giveTo(kAnns, kAnn);
    makeBundle(kBobs / "Victim.app", "com.example.victim");
    giveTo(kBobs, kBob);
  }

  static void expectRefused(const std::string& path, const std::string& sentence) {
    const Outcome outcome = molvanectl({"app", "remove", path});
    EXPECT_EQ(outcome.status, 1) << path;
    EXPECT_EQ(outcome.err, "molvanectl: " + sentence + " (com.molvane.helper.policy, 11)\n");
  }
};

TEST_F(AppRemoval, TakesBundlesFromBothFolders) {
  for (const std::string path :
       {"/Applications/Foo.app", "/Applications/Games/Foo.app", "/Users/ann/Applications/Foo.app",
        "/Users/ann/Applications/Games/Foo.app"}) {
    makeBundle(path, "com.example.foo");
    fs::permissions(fs::path(path) / "Contents/MacOS", fs::perms::none);
    fs::create_symlink(kBobs, fs::path(path) / "Contents/out");
    const Outcome outcome = molvanectl({"app", "remove", path + "//./"});
    EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
    EXPECT_FALSE(fs::exists(path));
  }
  EXPECT_TRUE(fs::exists(kApplications / "Games"));
  // A user whom the user database does not know has no folder of his own, and shares that of all.
  makeBundle(kApplications / "Foo.app", "com.example.foo");
  EXPECT_EQ(molvanectl({"app", "remove", kApplications / "Foo.app"}, {12345, 20}).status, 0);
  EXPECT_EQ(versionOf(kBobs / "Victim.app"), "1\n");
}

TEST_F(AppRemoval, RefusedApplicationsStay) {
  makeBundle(kApplications / "Utilities/Disk.app", "com.example.disk");
  makeBundle(kApplications / "Games/Safari.app", "com.example.safari");
  fs::create_directory_symlink(kBobs / "Victim.app", kApplications / "Link.app");
  expectRefused(
      "/Users/bob/Applications/Victim.app",
      "Only apps in /Applications or ~/Applications can be removed: /Users/bob/Applications/Victim.app");
  expectRefused("/Applications/Utilities/Disk.app",
                "Refusing to remove a protected app: /Applications/Utilities/Disk.app");
  expectRefused("/Applications/Games/Safari.app",
                "Refusing to remove a protected app: /Applications/Games/Safari.app");
  expectRefused("/Applications/Link.app", "Refusing to follow a symlink: /Applications/Link.app");
  EXPECT_EQ(versionOf(kBobs / "Victim.app"), "1\n");
  EXPECT_TRUE(fs::exists(kApplications / "Utilities/Disk.app"));
  EXPECT_TRUE(fs::exists(kApplications / "Games/Safari.app"));
}

// On a volume that ignores case one item has many names. Here a bind mount gives it a second one.
TEST_F(AppRemoval, AProtectedItemKeepsItsProtectionUnderAnotherName) {
  makeBundle(kApplications / "MacMolvane.app", "com.molvane.app");
  makeBundle(kApplications / "Utilities/Disk.app", "com.example.disk");
  const SecondName app(kApplications / "MacMolvane.app", kApplications / "macmolvane.app");
  const SecondName folder(kApplications / "Utilities", kApplications / "utilities");
  for (const std::string path : {"/Applications/macmolvane.app", "/Applications/utilities/Disk.app"}) {
    expectRefused(path, "Refusing to remove a protected app: " + path);
    EXPECT_EQ(versionOf(path), "1\n");
  }
}

TEST_F(AppRemoval, RefusesALinkOnTheWay) {
  fs::create_directory_symlink(kBobs, kApplications / "Games");
  expectRefused("/Applications/Games/Victim.app",
                "Refusing to follow a symlink: /Applications/Games/Victim.app");
  fs::remove(kAnns);
  fs::create_directory_symlink(kBobs, kAnns);
  expectRefused(kAnns / "Victim.app", "Refusing to follow a symlink: /Users/ann/Applications/Victim.app");
  EXPECT_EQ(versionOf(kBobs / "Victim.app"), "1\n");
}

// Ann swaps folders of hers for links to Bob's while root removes below them.
TEST_F(AppRemoval, WhatAnnSwapsLeadsNowhere) {
  constexpr int kRounds = 200;
  int removed = 0;
  int refused = 0;
  for (const char* swapped : {"Games", "Games/Victim.app"}) {
    for (int round = 0; round < kRounds; ++round) {
      fs::remove_all(kAnns);
      makeBundle(kAnns / "Games/Victim.app", "com.example.mine");
      fs::create_directory_symlink(std::string(swapped) == "Games" ? kBobs : kBobs / "Victim.app",
                                   kAnns / "link");
      giveTo(kAnns, kAnn);
      const auto attacker = swapping(kAnn, kAnns / swapped, kAnns / "link");
      const Outcome outcome = molvanectl({"app", "remove", kAnns / "Games/Victim.app"});
      ++(outcome.status == 0 ? removed : refused);
      ASSERT_EQ(versionOf(kBobs / "Victim.app"), "1\n") << "round " << round;
    }
  }
  EXPECT_GT(removed, 0);
  EXPECT_GT(refused, 0);
}

TEST_F(AppRemoval, ALargeBundleAndOneWithAMountInside) {
  const fs::path large = kApplications / "Large.app";
  for (int i = 0; i < 20'000; ++i) {
    writeFile(large / std::to_string(i / 100) / std::to_string(i), "x");
  }
  EXPECT_EQ(molvanectl({"app", "remove", large}).status, 0);
  EXPECT_FALSE(fs::exists(large));

  const fs::path mounted = kApplications / "Mounted.app/Contents/disk";
  fs::create_directories(mounted);
  ASSERT_EQ(mount("tmpfs", mounted.c_str(), "tmpfs", 0, nullptr), 0);
  writeFile(mounted / "kept", "x");
  const Outcome outcome = molvanectl({"app", "remove", kApplications / "Mounted.app"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "molvanectl: A volume is mounted on disk. Unmount it first. (NSPOSIXErrorDomain, 18)\n");
  EXPECT_TRUE(fs::exists(mounted / "kept"));
  ASSERT_EQ(umount(mounted.c_str()), 0);
}

TEST_F(AppRemoval, TwoAtOnceEndWithOneSuccess) {
  for (int round = 0; round < 10; ++round) {
    for (int i = 0; i < 300; ++i) writeFile(kApplications / "Foo.app" / std::to_string(i), "x");
    Program one({kClient, "app", "remove", kApplications / "Foo.app"}, kAnn);
    Program other({kClient, "app", "remove", kApplications / "Foo.app"}, kBob);
    const Outcome first = one.wait();
    const Outcome second = other.wait();
    EXPECT_FALSE(fs::exists(kApplications / "Foo.app"));
    EXPECT_NE(first.status == 0, second.status == 0);
  }
}

}  // namespace
}  // namespace molvane::e2e
