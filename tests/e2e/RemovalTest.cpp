#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "Harness.hpp"
#include "RawClient.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;
using testing::StartsWith;

std::string refusal(const std::string& sentence, int code) {
  return "molvanectl: " + sentence + " (com.molvane.helper, " + std::to_string(code) + ")\n";
}

void expectRefused(const std::string& path, const std::string& error) {
  const Outcome outcome = molvanectl({"remove", path});
  EXPECT_EQ(outcome.status, 1) << path;
  EXPECT_EQ(outcome.out, "") << path;
  EXPECT_EQ(outcome.err, error) << path;
}

void expectDenied(const std::string& path, const std::string& standardised) {
  expectRefused(path, refusal("Path not allowed: " + standardised, 1));
}

TEST(Removal, TakesATreeWithEverythingInIt) {
  const CacheFolder folder("removal");
  const fs::path tree = folder / "tree";
  for (int i = 0; i < 50; ++i) writeFile(tree / std::to_string(i % 7) / (std::to_string(i) + " ü\n"), "x");
  writeFile(folder / "victim", "keep");
  fs::create_symlink(folder / "victim", tree / "link");
  fs::create_directory_symlink("/Library", tree / "folder-link");
  ASSERT_EQ(mkfifo((tree / "fifo").c_str(), 0600), 0);
  fs::permissions(tree / "3", fs::perms::none);

  const Outcome outcome = molvanectl({"remove", tree});
  EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
  EXPECT_FALSE(fs::exists(tree));
  EXPECT_EQ(readFile(folder / "victim"), "keep");
  EXPECT_TRUE(fs::exists("/Library/Application Support"));
}

TEST(Removal, AcceptsAPathInAnyForm) {
  const CacheFolder folder("removal");
  for (const char* form : {"//x/./y/", "/x/y/", "/x/../x/y", "/./x//y"}) {
    writeFile(folder / "x/y/file", "x");
    const Outcome outcome = molvanectl({"remove", folder.path().string() + form});
    EXPECT_EQ(outcome.status, 0) << form << testing::PrintToString(outcome);
    EXPECT_FALSE(fs::exists(folder / "x/y")) << form;
    EXPECT_TRUE(fs::exists(folder / "x")) << form;
  }
}

TEST(Removal, RefusesWhatLiesOutside) {
  writeFile("/var/root/Library/Preferences/a", "x");
  writeFile("/var/root/Library/CachesOld/a", "x");
  expectDenied("/var/root/Library/Preferences/a", "/var/root/Library/Preferences/a");
  expectDenied("/var/root/Library/CachesOld/a", "/var/root/Library/CachesOld/a");
  expectDenied("/var/root/Library/Caches/../Preferences/a", "/var/root/Library/Preferences/a");
  expectDenied("/var/root/library/caches/a", "/var/root/library/caches/a");
  expectDenied("/Users/ann/Library/Caches", "/Users/ann/Library/Caches");
  expectDenied("/", "/");
  expectDenied("//", "/");
  expectDenied("/tmp", "/tmp");
  expectDenied("relative/path", "relative/path");
  EXPECT_TRUE(fs::exists("/var/root/Library/Preferences/a"));
  EXPECT_TRUE(fs::exists("/var/root/Library/CachesOld/a"));
}

TEST(Removal, RefusesTheRootsAndTheDeniedNames) {
  for (const std::string root : {"/var/root/Library/Caches", "/var/root/Library/Logs"}) {
    for (const char* form : {"", "/", "//", "/x/.."}) {
      expectRefused(root + form, refusal("Refusing to delete allowlist root: " + root, 2));
    }
    EXPECT_TRUE(fs::exists(root));
  }
  for (const std::string name : {"CloudKit", "FamilyCircle", "com.apple.accountsd", "com.apple.Safari"}) {
    const CacheFolder denied(name);
    const CacheFolder folder("removal");
    writeFile(denied / "a", "x");
    writeFile(folder / "b" / name / "a", "x");
    const std::string error = refusal("Refusing to delete denied item: " + name, 3);
    expectRefused(denied.path(), error);
    expectRefused(denied.path().string() + "/", error);
    expectRefused(folder / "b" / name, error);
    EXPECT_TRUE(fs::exists(denied / "a"));
    EXPECT_TRUE(fs::exists(folder / "b" / name / "a"));
  }
  const CacheFolder similar("CloudKitX");
  EXPECT_EQ(molvanectl({"remove", similar.path()}).status, 0);
}

TEST(Removal, TellsWhatIsNotThere) {
  const CacheFolder folder("removal");
  const std::string gone = folder / "gone";
  expectRefused(gone, refusal("Path not found: " + gone, 4));
  const fs::path dangling = folder / "dangling";
  fs::create_symlink("/no/such/target", dangling);
  expectRefused(dangling, refusal("Path not found: " + dangling.string(), 4));
  EXPECT_TRUE(fs::is_symlink(dangling));
}

TEST(Removal, TakesALinkAndNotItsTarget) {
  const CacheFolder folder("removal");
  writeFile("/Library/removal-victim/file", "keep");
  fs::create_directory_symlink("/Library/removal-victim", folder / "link");
  EXPECT_EQ(molvanectl({"remove", folder / "link"}).status, 0);
  EXPECT_FALSE(fs::is_symlink(folder / "link"));
  EXPECT_EQ(readFile("/Library/removal-victim/file"), "keep");
}

TEST(Removal, DoesNotGoThroughALinkBelowTheRoot) {
  const CacheFolder folder("removal");
  writeFile("/Library/removal-victim/inner/file", "keep");
  fs::create_directory_symlink("/Library/removal-victim", folder / "link");
  expectDenied(folder / "link/inner", folder / "link/inner");
  writeFile(folder / "real/inner/file", "keep");
  fs::create_directory_symlink(folder / "real", folder / "inside");
  expectDenied(folder / "inside/inner", folder / "inside/inner");
  EXPECT_EQ(readFile("/Library/removal-victim/inner/file"), "keep");
  EXPECT_EQ(readFile(folder / "real/inner/file"), "keep");
}

// Swaps two names for each other as fast as it can, as long as it lives.
class Swapper {
 public:
  Swapper(fs::path one, fs::path other)
      : thread_([this, one = std::move(one), other = std::move(other)] {
          while (!stop_) {
            if (renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0) ++swaps_;
          }
        }) {}
  ~Swapper() {
    stop_ = true;
    thread_.join();
  }
  Swapper(const Swapper&) = delete;
  Swapper& operator=(const Swapper&) = delete;

  [[nodiscard]] int swaps() const { return swaps_; }

 private:
  std::atomic<bool> stop_ = false;
  std::atomic<int> swaps_ = 0;
  std::thread thread_;
};

// The folder `below` of `folder`/race is removed again and again while the folder at `swapped` and a link to
// the victim change places.
void raceRemoval(const std::string& below, const std::string& swapped) {
  constexpr int kRounds = 300;
  const CacheFolder folder("race");
  const fs::path victim = "/Library/race-victim";
  RawClient client;
  client.authenticate();
  int removed = 0;
  int swaps = 0;
  for (int round = 0; round < kRounds; ++round) {
    for (const char* name : {"a", "b", "c"}) {
      writeFile(folder / below / name, "x");
      writeFile(victim / "inner" / name, "keep");
      writeFile(victim / name, "keep");
    }
    const fs::path link = folder / "link";
    fs::remove(link);
    fs::create_directory_symlink(victim, link);
    {
      const Swapper swapper(folder / swapped, link);
      const std::string path = folder / below;
      if (!client.call("RemoveAllowedItemAtPath", "s", marshalled(path)).error) ++removed;
      swaps += swapper.swaps();
    }
    for (const char* name : {"a", "b", "c"}) {
      ASSERT_EQ(readFile(victim / "inner" / name), "keep") << "round " << round;
      ASSERT_EQ(readFile(victim / name), "keep") << "round " << round;
    }
    fs::remove_all(folder / "outer");
    fs::remove_all(link);
  }
  EXPECT_GT(removed, 0);
  EXPECT_GT(swaps, 0);
}

TEST(Removal, FolderSwappedForALinkWhileItIsRemoved) { raceRemoval("outer/inner", "outer/inner"); }

TEST(Removal, FolderOnTheWaySwappedForALink) { raceRemoval("outer/inner", "outer"); }

TEST(Removal, TwoAtOnceEndWithOneSuccess) {
  const CacheFolder folder("removal");
  for (int round = 0; round < 20; ++round) {
    const std::string path = folder / "shared";
    for (int i = 0; i < 200; ++i) writeFile(folder / "shared" / std::to_string(i), "x");
    Program one({kClient, "remove", path}, kAnn);
    Program other({kClient, "remove", path}, kBob);
    const Outcome first = one.wait();
    const Outcome second = other.wait();
    EXPECT_FALSE(fs::exists(path));
    EXPECT_TRUE(first.status == 0 || second.status == 0)
        << testing::PrintToString(first) << testing::PrintToString(second);
  }
}

}  // namespace
}  // namespace molvane::e2e
