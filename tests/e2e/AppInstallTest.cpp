#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <string_view>

#include "Inbox.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;
using namespace std::string_view_literals;
using testing::AnyOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

const fs::path kFoo = kApplications / "Foo.app";

Outcome install(const std::string& path, Person who = kAnn) {
  return molvanectl({"app", "install", path}, who);
}

std::string refusal(const std::string& sentence) {
  return "molvanectl: " + sentence + " (com.molvane.helper.policy, 13)\n";
}

void expectRefused(const std::string& path, const std::string& sentence) {
  const Outcome outcome = install(path);
  EXPECT_EQ(outcome.status, 1) << path;
  EXPECT_EQ(outcome.err, refusal(sentence));
  EXPECT_THAT(namesIn(kAppStaging), IsEmpty()) << path;
}

unsigned modeOf(const fs::path& path) { return static_cast<unsigned>(fs::status(path).permissions()); }

TEST(AppInstall, InstallsAndReplacesAnOlderCopyOfItself) {
  const Inbox inbox;
  const std::string app = inbox.addApp("Foo.app", "com.example.foo", "1");
  const Outcome first = install(app + "/");
  EXPECT_EQ(first.status, 0) << testing::PrintToString(first);
  EXPECT_EQ(first.out, "/Applications/Foo.app\n");
  EXPECT_EQ(versionOf(kFoo), "1\n");
  EXPECT_EQ(fs::read_symlink(kFoo / "Contents/Link"), "MacOS/Program");
  EXPECT_EQ(versionOf(app), "1\n") << "the inbox was changed";
  EXPECT_EQ(modeOf(kAppStaging), 0700U);

  // One that runs, is read-only and has a part that nobody may read.
  fs::permissions(kFoo / "Contents/Resources", fs::perms::none);
  fs::permissions(kFoo, fs::perms(0555));
  fs::copy_file("/usr/bin/sleep", kFoo / "Contents/MacOS/sleep");
  Program running({kFoo / "Contents/MacOS/sleep", "3600"}, kAnn);
  EXPECT_EQ(install(inbox.addApp("Foo.app", "com.example.foo", "2")).status, 0);
  EXPECT_EQ(versionOf(kFoo), "2\n");
  EXPECT_FALSE(fs::exists(kFoo / "Contents/MacOS/sleep"));
  EXPECT_THAT(namesIn(kAppStaging), IsEmpty());
  EXPECT_THAT(namesIn(kApplications), ElementsAre("Foo.app"));
}

// Gives a file an extended attribute.
void setAttribute(const fs::path& path, const char* name, std::string_view value) {
  ASSERT_EQ(setxattr(path.c_str(), name, value.data(), value.size(), 0), 0) << name << " of " << path;
}
bool hasAttribute(const fs::path& path, const char* name) {
  return getxattr(path.c_str(), name, nullptr, 0) >= 0;
}

TEST(AppInstall, ReadsABinaryInfoPlistAndDropsWhatGivesOthersRights) {
  const Inbox inbox;
  const fs::path app = inbox.addApp("Foo.app", "com.example.foo");
  const Outcome binary = run({"/usr/bin/python3", "-c",
                              "import plistlib,sys; plistlib.dump({'CFBundleIdentifier':'com.example.foo'}, "
                              "open(sys.argv[1],'wb'), fmt=plistlib.FMT_BINARY)",
                              app / "Contents/Info.plist"});
  ASSERT_EQ(binary.status, 0) << binary.err;
  signBundle(app);
  giveTo(app, kAnn);
  // All capabilities, and an access list by which Bob may write.
  const auto capabilities = "\x01\0\0\x02\xff\xff\xff\xff\0\0\0\0\xff\0\0\0\0\0\0\0"sv;
  const auto list =
      "\x02\0\0\0\x01\0\x07\0\xff\xff\xff\xff\x02\0\x07\0\xf6\x01\0\0\x04\0\x05\0\xff\xff\xff\xff"
      "\x10\0\x07\0\xff\xff\xff\xff\x20\0\x05\0\xff\xff\xff\xff"sv;
  const std::pair<const char*, const char*> given[] = {{"Contents/MacOS/Program", "security.capability"},
                                                       {"Contents/MacOS/Program", "system.posix_acl_access"},
                                                       {"Contents/Resources", "system.posix_acl_access"},
                                                       {"Contents/Resources", "system.posix_acl_default"}};
  for (const auto& [path, name] : given) {
    setAttribute(app / path, name, name == "security.capability"sv ? capabilities : list);
  }
  setAttribute(app / "Contents/MacOS/Program", "user.note", "kept");
  fs::permissions(app / "Contents/MacOS/Program", fs::perms(06777));
  fs::permissions(app / "Contents/Resources", fs::perms(01777));
  fs::permissions(app, fs::perms(02777));
  const Outcome outcome = install(app);
  EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
  for (const auto& [path, name] : given) {
    EXPECT_TRUE(hasAttribute(app / path, name)) << "the inbox was changed";
    EXPECT_FALSE(hasAttribute(kFoo / path, name)) << name << " of " << path;
  }
  EXPECT_TRUE(hasAttribute(kFoo / "Contents/MacOS/Program", "user.note"));
  for (const char* path : {"", "Contents/MacOS/Program", "Contents/Resources"}) {
    EXPECT_EQ(modeOf(kFoo / path), 0755U) << path;
  }
}

TEST(AppInstall, RefusesWhatIsNoApplicationOfThePersonsInTheInbox) {
  const Inbox inbox;
  const std::string in = inbox.path().string() + "/";
  const std::string app = inbox.addApp("Foo.app", "com.example.foo");
  makeBundle("/Users/ann/Foo.app", "com.example.foo");
  makeBundle(in + "Bobs.app", "com.example.bob");
  giveTo(in, kAnn);
  giveTo(in + "Bobs.app", kBob);
  fs::create_directory_symlink(in, in + "way");

  expectRefused("/Users/ann/Foo.app",
                "Only apps received in company mode can be installed: /Users/ann/Foo.app");
  expectRefused(in + "way/Foo.app", "Refusing to follow a symlink: " + in + "way/Foo.app");
  expectRefused(in + "Bobs.app", "The app does not belong to the person logged in: " + in + "Bobs.app");
  // Bob may not install what is in Ann's inbox.
  EXPECT_EQ(install(app, kBob).err, refusal("Only apps received in company mode can be installed: " + app));

  // Part of the bundle is somebody else's.
  giveTo(app + "/Contents/MacOS/Program", kBob);
  expectRefused(app, "The app does not belong to the person logged in: " + app);
  giveTo(app, kAnn);
  expectRefused(inbox.addApp("Safari.app", "com.example.foo"),
                "Safari.app is protected and cannot be replaced.");
  {
    const SecondName received(inbox / "Safari.app", inbox / "safari.app");
    expectRefused(in + "safari.app", "safari.app is protected and cannot be replaced.");
  }
  {
    makeBundle(kApplications / "MacMolvane.app", "com.molvane.app", "own");
    const SecondName installed(kApplications / "MacMolvane.app", kApplications / "macmolvane.app");
    expectRefused(inbox.addApp("macmolvane.app", "com.molvane.app"),
                  "macmolvane.app is protected and cannot be replaced.");
    EXPECT_EQ(versionOf(kApplications / "MacMolvane.app"), "own\n");
  }
  fs::remove_all(kApplications / "MacMolvane.app");
  EXPECT_THAT(namesIn(kApplications), IsEmpty());

  fs::remove_all("/Users/ann/Foo.app");
}

TEST(AppInstall, HostileInfoPlistsAreNoApplications) {
  const Inbox inbox;
  const fs::path app = inbox.addApp("Foo.app", "com.example.foo");
  const fs::path plist = app / "Contents/Info.plist";
  std::string deep = "<plist>";
  for (int i = 0; i < 20'000; ++i) deep += "<array>";
  // A binary list whose one array holds itself, and one that is cut off.
  const std::string cyclic =
      std::string("bplist00\xa1\x00", 10) + std::string("\x08", 1) +
      std::string("\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0a", 32);
  for (const std::string& content :
       {std::string(), deep, cyclic, cyclic.substr(0, 20), infoPlist("x").substr(0, 90),
        std::string("<plist><dict><key>CFBundleIdentifier</key><integer>1</integer></dict></plist>"),
        infoPlist(std::string(2'000'000, 'x'))}) {
    writeFile(plist, content);
    expectRefused(app, "Not an application: " + app.string());
  }
  fs::remove(plist);
  fs::create_symlink("/etc/passwd", plist);
  expectRefused(app, "Not an application: " + app.string());
  fs::remove(plist);
  ASSERT_EQ(mkfifo(plist.c_str(), 0666), 0);
  expectRefused(app, "Not an application: " + app.string());
}

TEST(AppInstall, NeverReplacesSomethingElse) {
  const Inbox inbox;
  const std::string app = inbox.addApp("Foo.app", "com.example.foo");
  const std::string sentence = "/Applications already has a different app called Foo.app.";
  makeBundle(kFoo, "com.example.other", "other");
  expectRefused(app, sentence);
  EXPECT_EQ(versionOf(kFoo), "other\n");
  fs::rename(kFoo, kApplications / "Other.app");
  fs::create_directory_symlink(app, kFoo);
  expectRefused(app, sentence);
  EXPECT_TRUE(fs::is_symlink(kFoo));
  fs::remove(kFoo);
  writeFile(kFoo, "kept");
  expectRefused(app, sentence);
  EXPECT_EQ(readFile(kFoo), "kept");
  fs::remove(kFoo);
  makeBundle(kApplications / "Elsewhere.app", "com.example.foo", "mounted");
  const SecondName mounted(kApplications / "Elsewhere.app", kFoo);
  EXPECT_EQ(
      install(app).err,
      "molvanectl: A volume is mounted on /Applications/Foo.app. Unmount it first. (NSPOSIXErrorDomain, "
      "16)\n");
  EXPECT_EQ(versionOf(kFoo), "mounted\n");
}

TEST(AppInstall, OnlyWhatTheAssessmentAccepts) {
  const Inbox inbox;
  const fs::path app = inbox.addApp("Foo.app", "com.example.foo");
  const std::string sentence =
      "molvanectl: macOS would not open this app (it must be signed with a Developer ID and notarized). "
      "/Library/";
  writeFile(app / "Contents/Resources/added", "x");
  giveTo(app, kAnn);
  EXPECT_THAT(install(app).err, StartsWith(sentence));
  signBundle(app, "unmarked");
  giveTo(app, kAnn);
  EXPECT_THAT(install(app).err, StartsWith(sentence));
  EXPECT_THAT(namesIn(kApplications), IsEmpty());
  signBundle(app);
  giveTo(app, kAnn);
  EXPECT_EQ(install(app).status, 0);

  const ToolBehaviour refuses("spctl", "print not today\nexit 3\n");
  expectRefused(
      inbox.addApp("Foo.app", "com.example.foo", "2"),
      "macOS would not open this app (it must be signed with a Developer ID and notarized). not today");
  EXPECT_EQ(versionOf(kFoo), "1\n");
}

TEST(AppInstall, ToolsThatFailFloodOrDoNothing) {
  const Inbox inbox;
  const std::string app = inbox.addApp("Foo.app", "com.example.foo");
  {
    const ToolBehaviour fails("ditto", "print no space\nexit 1\n");
    expectRefused(app, "no space");
  }
  {
    const ToolBehaviour lies("ditto", "exit 0\n");
    expectRefused(app, "Not an application: " + app);
  }
  const ToolBehaviour floods("ditto", "flood 30\n");
  const ToolBehaviour floodsToo("spctl", "flood 1\n");
  EXPECT_EQ(install(app).status, 0);
}

// Runs a shell command before the tool's own work, while this object lives.
class ToolWithPrelude {
 public:
  ToolWithPrelude(fs::path tool, const std::string& command) : tool_(std::move(tool)) {
    fs::rename(tool_, kept());
    writeFile(tool_, "#!/bin/bash\n" + command + "\nexec '" + kept() + "' \"$@\"\n");
    fs::permissions(tool_, fs::perms(0755));
  }
  ~ToolWithPrelude() {
    std::error_code ignored;
    fs::rename(kept(), tool_, ignored);
  }
  ToolWithPrelude(const ToolWithPrelude&) = delete;
  ToolWithPrelude& operator=(const ToolWithPrelude&) = delete;

 private:
  [[nodiscard]] std::string kept() const { return tool_.string() + ".kept"; }

  fs::path tool_;
};

// What is changed between the checks and the copying shows in the copy.
TEST(AppInstall, TheCopyIsCheckedAnew) {
  const Inbox inbox;
  const std::string secret = "/Users/bob/Secret.app";
  makeBundle(secret, "com.example.foo", "secret");
  signBundle(secret);
  giveTo(secret, kBob);
  const std::string notHers = "The app does not belong to the person logged in: ";
  const std::pair<std::string, std::string> changes[] = {
      {"mv \"$1\" \"$1.kept\"; ln -s " + secret + " \"$1\"", notHers},
      {"mv \"$1/Contents\" \"$1.kept\"; ln -s " + secret +
           "/Contents \"$1/Contents\"; chown -h ann \"$1/Contents\"",
       "Not an application: "},
      {"cp -a " + secret + "/Contents/MacOS \"$1/Contents/Resources\"", notHers},
      {"ln " + secret + "/Contents/MacOS/Program \"$1/Contents/Resources\"", notHers},
      {"sed -i s/com.example.foo/com.example.bar/ \"$1/Contents/Info.plist\"; chown ann "
       "\"$1/Contents/Info.plist\"",
       "Not an application: "},
      {"setpriv --reuid ann --clear-groups mkfifo \"$1/Contents/fifo\"", "Not an application: "},
      {"mv \"$1\" \"$1.kept\"; echo > \"$1\"; chown ann \"$1\"", "Not an application: "}};
  for (const auto& [change, sentence] : changes) {
    const std::string app = inbox.addApp("Foo.app", "com.example.foo");
    const ToolWithPrelude ditto("/usr/bin/ditto", change);
    expectRefused(app, sentence + app);
    EXPECT_THAT(namesIn(kApplications), IsEmpty()) << change;
    fs::remove_all(app);
    fs::remove_all(app + ".kept");
  }
  fs::remove_all(secret);
}

// The name of a copy must not pass it off as an older one that has to go back when the helper is killed.
TEST(AppInstall, WhatWasNotYetAcceptedIsGoneAfterAKill) {
  const Inbox inbox;
  const std::string app = inbox.addApp("previous-Foo.app", "com.example.foo");
  {
    const ToolBehaviour hangs("spctl", "hang\n");
    LogFollower tools(kToolLog);
    Program client({kClient, "app", "install", app}, kAnn);
    tools.waitFor("/usr/sbin/spctl");
    EXPECT_THAT(namesIn(kAppStaging), SizeIs(1));
    endHelper();
    EXPECT_EQ(client.wait().status, 3);
  }
  ASSERT_THAT(namesIn(kAppStaging), SizeIs(1));
  EXPECT_EQ(install(inbox.addApp("Other.app", "com.example.other")).status, 0);
  EXPECT_THAT(namesIn(kAppStaging), IsEmpty());
  EXPECT_THAT(namesIn(kApplications), ElementsAre("Other.app"));
}

TEST(AppInstall, AnOlderCopyThatWasMovedAsideIsBackWhenTheNextHelperStarts) {
  const Inbox inbox;
  const fs::path leftover = kAppStaging / "0B571681-2208-4324-890E-E8E482A51CF5";
  makeBundle(leftover / "previous-Foo.app", "com.example.foo", "old");
  makeBundle(leftover / "Foo.app", "com.example.foo", "new");
  fs::permissions(leftover, fs::perms(0700));
  endHelper();
  EXPECT_EQ(molvanectl({"ping"}).status, 0);
  EXPECT_EQ(versionOf(kFoo), "old\n");
  // What was not to be lost has gone; the next installation tidies up.
  EXPECT_EQ(install(inbox.addApp("Foo.app", "com.example.foo", "newer")).status, 0);
  EXPECT_EQ(versionOf(kFoo), "newer\n");
  EXPECT_THAT(namesIn(kAppStaging), IsEmpty());
}

TEST(AppInstall, ApplicationsOnAnotherFileSystem) {
  const Inbox inbox;
  const fs::path app = inbox.addApp("Foo.app", "com.example.foo", "1");
  ASSERT_EQ(mount("tmpfs", kApplications.c_str(), "tmpfs", 0, "size=1m,mode=0775"), 0);
  EXPECT_EQ(install(app).status, 0);
  EXPECT_EQ(versionOf(kFoo), "1\n");
  struct stat program {};
  ASSERT_EQ(stat((kFoo / "Contents/MacOS/Program").c_str(), &program), 0);
  EXPECT_EQ(program.st_uid, kAnn.uid);
  EXPECT_EQ(program.st_mode & 07777U, 0755U);
  EXPECT_EQ(fs::last_write_time(kFoo / "Contents/Info.plist"),
            fs::last_write_time(app / "Contents/Info.plist"));
  EXPECT_EQ(fs::read_symlink(kFoo / "Contents/Link"), "MacOS/Program");
  EXPECT_EQ(install(inbox.addApp("Foo.app", "com.example.foo", "2")).status, 0);
  EXPECT_EQ(versionOf(kFoo), "2\n");

  // There is no room for the third: the second stays.
  static_cast<void>(inbox.addApp("Foo.app", "com.example.foo", "3"));
  writeFile(app / "Contents/Resources/large", std::string(2'000'000, 'x'));
  signBundle(app);
  giveTo(app, kAnn);
  EXPECT_THAT(install(app).err, HasSubstr("(NSPOSIXErrorDomain, 28)"));
  EXPECT_EQ(versionOf(kFoo), "2\n");
  EXPECT_THAT(namesIn(kApplications), ElementsAre("Foo.app"));
  EXPECT_THAT(namesIn(kAppStaging), IsEmpty());
  ASSERT_EQ(umount(kApplications.c_str()), 0);
}

TEST(AppInstall, AStagingFolderThatIsNotAsItShouldBe) {
  const Inbox inbox;
  const std::string app = inbox.addApp("Foo.app", "com.example.foo");
  fs::remove_all(kAppStaging.parent_path());
  fs::create_directories(kAppStaging);
  fs::permissions(kAppStaging, fs::perms(0777));
  EXPECT_EQ(install(app).status, 0);
  EXPECT_EQ(modeOf(kAppStaging), 0700U);

  fs::permissions(kAppStaging.parent_path(), fs::perms(0777));
  EXPECT_EQ(install(app).err,
            "molvanectl: Nothing can be installed safely: others may change the folder "
            "/Library/Application Support/MacMolvane. (NSPOSIXErrorDomain, 1)\n");
  fs::permissions(kAppStaging.parent_path(), fs::perms(0755));

  fs::remove_all(kAppStaging);
  fs::create_directories("/Users/ann/trap");
  fs::create_directory_symlink("/Users/ann/trap", kAppStaging);
  EXPECT_THAT(install(app).err,
              StartsWith("molvanectl: Nothing can be installed safely: " + kAppStaging.string() +
                         " is not a folder of the system. (NSPOSIXErrorDomain, "));
  EXPECT_THAT(namesIn("/Users/ann/trap"), IsEmpty());
  fs::remove(kAppStaging);
  fs::remove_all("/Users/ann/trap");

  fs::create_directory(kAppStaging);
  ASSERT_EQ(mount("tmpfs", kAppStaging.c_str(), "tmpfs", 0, "size=8k"), 0);
  EXPECT_EQ(install(app).status, 1);
  EXPECT_THAT(namesIn(kAppStaging), IsEmpty());
  ASSERT_EQ(umount(kAppStaging.c_str()), 0);
}

// Ann makes her bundle, or a folder in it, change places with links to what she cannot read.
TEST(AppInstall, WhatAnnSwapsNeverBringsBobsFilesAlong) {
  constexpr int kRounds = 15;
  constexpr int kMostRounds = 300;
  const fs::path secret = "/Users/bob/Secret.app";
  makeBundle(secret, "com.example.foo", "secret");
  signBundle(secret);
  giveTo(secret, kBob);
  const Inbox inbox;
  int installed = 0;
  int refused = 0;
  // On until both have happened: an installation has to meet her bundle in place at each of its steps.
  for (int round = 0; round < kRounds || ((installed == 0 || refused == 0) && round < kMostRounds); ++round) {
    for (const char* swapped : {"Foo.app", "Foo.app/Contents", "Foo.app/Contents/MacOS"}) {
      const std::string app = inbox.addApp("Foo.app", "com.example.foo");
      const fs::path way = fs::path(swapped).lexically_relative("Foo.app");
      fs::remove_all(inbox / "link");
      fs::create_directory_symlink(way == "." ? secret : secret / way, inbox / "link");
      giveTo(inbox / "link", kAnn);
      {
        const auto attacker = swapping(kAnn, inbox / swapped, inbox / "link");
        ++(install(app).status == 0 ? installed : refused);
      }
      ASSERT_NE(versionOf(kFoo), "secret\n") << swapped << " in round " << round;
      ASSERT_THAT(namesIn(kAppStaging), IsEmpty());
      fs::remove_all(kFoo);
    }
  }
  EXPECT_GT(installed, 0);
  EXPECT_GT(refused, 0);
  EXPECT_EQ(versionOf(secret), "secret\n");
  fs::remove_all(secret);
}

TEST(AppInstall, TheSameApplicationFromTwoClientsAtOnce) {
  const Inbox anns;
  const Inbox bobs(kBob, "/Users/bob");
  const std::string hers = anns.addApp("Foo.app", "com.example.foo", "hers");
  const std::string his = bobs.addApp("Foo.app", "com.example.foo", "his");
  for (int round = 0; round < 10; ++round) {
    Program one({kClient, "app", "install", hers}, kAnn);
    Program other({kClient, "app", "install", his}, kBob);
    Program third({kClient, "app", "install", hers}, kAnn);
    for (Program* client : {&one, &other, &third}) {
      const Outcome outcome = client->wait();
      EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
    }
    EXPECT_THAT(versionOf(kFoo), AnyOf("hers\n", "his\n"));
    EXPECT_THAT(namesIn(kApplications), ElementsAre("Foo.app"));
    EXPECT_THAT(namesIn(kAppStaging), IsEmpty());
  }
}

}  // namespace
}  // namespace molvane::e2e
