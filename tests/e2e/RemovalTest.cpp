#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Inbox.hpp"
#include "RawClient.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;

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

TEST(Removal, RefusesWhatLiesOutside) {
  writeFile("/var/root/Library/Preferences/a", "x");
  expectDenied("/var/root/Library/Preferences/a", "/var/root/Library/Preferences/a");
  expectDenied("/var/root/Library/Caches/../Preferences/a", "/var/root/Library/Preferences/a");
  expectDenied("/Users/ann/Library/Caches", "/Users/ann/Library/Caches");
  expectDenied("/", "/");
  expectDenied("/tmp", "/tmp");
  // The temporary folder may be cleaned, and the helper's own folder around it not.
  const std::string own = "/run/com.molvane.helper";
  writeFile(own + "/tmp/a", "x");
  EXPECT_EQ(molvanectl({"remove", own + "/tmp/a"}).status, 0);
  for (const char* name : {"", "/writing", "/checked-peers.json"}) expectDenied(own + name, own + name);
  EXPECT_TRUE(fs::exists(own + "/checked-peers.json"));
  EXPECT_TRUE(fs::exists("/var/root/Library/Preferences/a"));
}

TEST(Removal, RefusesTheRootsAndTheDeniedNames) {
  for (const std::string root : {"/var/root/Library/Caches", "/var/root/Library/Logs"}) {
    for (const char* form : {"", "/", "/x/.."}) {
      expectRefused(root + form, refusal("Refusing to delete allowlist root: " + root, 2));
    }
    EXPECT_TRUE(fs::exists(root));
  }
  for (const std::string name : {"CloudKit", "FamilyCircle", "com.apple.accountsd", "com.apple.Safari"}) {
    const CacheFolder denied(name);
    expectRefused(denied.path().string() + "/", refusal("Refusing to delete denied item: " + name, 3));
    EXPECT_TRUE(fs::exists(denied.path()));
  }
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

// The folder `below` of `folder`/race is removed again and again while the folder at `swapped` and a link to
// the victim change places, until both have come first.
void raceRemoval(const std::string& below, const std::string& swapped) {
  constexpr int kRounds = 300;
  constexpr int kMostRounds = 10'000;
  const CacheFolder folder("race");
  const fs::path victim = "/Library/race-victim";
  RawClient client;
  client.authenticate();
  int removed = 0;
  int refused = 0;
  const auto goesOn = [&](int round) {
    return round < kRounds || (round < kMostRounds && (removed == 0 || refused == 0));
  };
  for (int round = 0; goesOn(round); ++round) {
    for (const char* name : {"a", "b", "c"}) {
      writeFile(folder / below / name, "x");
      writeFile(victim / "inner" / name, "keep");
      writeFile(victim / name, "keep");
    }
    const fs::path link = folder / "link";
    fs::remove(link);
    fs::create_directory_symlink(victim, link);
    {
      const auto attacker = swapping(kRoot, folder / swapped, link);
      const std::string path = folder / below;
      ++(client.call("RemoveAllowedItemAtPath", "s", marshalled(path)).error ? refused : removed);
    }
    for (const char* name : {"a", "b", "c"}) {
      ASSERT_EQ(readFile(victim / "inner" / name), "keep") << "round " << round;
      ASSERT_EQ(readFile(victim / name), "keep") << "round " << round;
    }
    fs::remove_all(folder / "outer");
    fs::remove_all(link);
  }
  EXPECT_GT(removed, 0);
  EXPECT_GT(refused, 0);
}

TEST(Removal, FolderSwappedForALinkWhileItIsRemoved) { raceRemoval("outer/inner", "outer/inner"); }

TEST(Removal, FolderOnTheWaySwappedForALink) { raceRemoval("outer/inner", "outer"); }

}  // namespace
}  // namespace molvane::e2e
