#include "Platform/SafeFile.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/DirectoryHandle.hpp"
#include "Platform/LockFile.hpp"
#include "Platform/testing/FileSizeLimit.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

int errnoOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

class SafeFile : public ::testing::Test {
 protected:
  [[nodiscard]] std::string path(const std::string& name) const { return temporary.path() + "/" + name; }
  [[nodiscard]] std::string content(const std::string& name) const {
    return *readSmallFile(path(name), 1U << 20U);
  }

  TemporaryFolder temporary;
  FileDescriptor folder = openFolder(temporary.path());
};

TEST_F(SafeFile, ReplacesTheWholeFileWithItsFinalModeWhateverTheUmask) {
  const mode_t mask = ::umask(0);
  replaceFile(folder, "a", std::string("long\0 content", 13), 0640);
  EXPECT_EQ(content("a"), std::string("long\0 content", 13));
  replaceFile(folder, "a", "", 0600);
  EXPECT_EQ(content("a"), "");
  EXPECT_EQ(fs::status(path("a")).permissions(), fs::perms(0600));
  ::umask(077);
  replaceFile(folder, "a", "x", 0644);
  ::umask(mask);
  EXPECT_EQ(fs::status(path("a")).permissions(), fs::perms(0644));
  EXPECT_THAT(namesIn(temporary.path()), ::testing::ElementsAre("a"));
}

TEST_F(SafeFile, AHeldFileIsToldFromEveryOther) {
  const auto held = [&] { return std::move(readAndHold(path("a"), 5)->file); };
  EXPECT_TRUE(isAt(path("a"), {}));
  const HeldFile written = replaceFile(folder, "a", "1", 0600);
  EXPECT_TRUE(isAt(path("a"), written));
  EXPECT_FALSE(isAt(path("a"), {}));
  EXPECT_FALSE(isAt(path("a/b"), {}));  // cannot be told
  const HeldFile read = held();
  EXPECT_TRUE(isAt(path("a"), read));
  // Where nobody holds a file, its inode number may be the next one's.
  for (int i = 0; i < 10; ++i) {
    replaceFile(folder, "a", "1", 0600);
    EXPECT_FALSE(isAt(path("a"), read));
  }
  const HeldFile before = held();
  std::ofstream(path("a")) << "12";
  EXPECT_FALSE(isAt(path("a"), before));
}

TEST_F(SafeFile, ALockFileHasOneHolderAtATime) {
  constexpr double kLong = 60;
  for (const char* const name : {"lock", "lock.next"})
    std::ofstream(path(name)) << "left by a killed process";
  std::atomic<int> inside = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < 50; ++turn) {
        const LockFile lock(path("lock"), kLong);
        EXPECT_EQ(++inside, 1);
        --inside;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(namesIn(temporary.path()), ::testing::IsEmpty());

  const LockFile held(path("lock"), 0);
  EXPECT_EQ(errnoOf([&] { const LockFile second(path("lock"), 0); }), EBUSY);
  EXPECT_EQ(errnoOf([&] { const LockFile second(path("none/lock"), 0); }), ENOENT);
  fs::create_symlink("target", path("link"));
  EXPECT_EQ(errnoOf([&] { const LockFile second(path("link"), 0); }), ELOOP);
  EXPECT_THAT(namesIn(temporary.path()), ::testing::ElementsAre("link", "lock"));
}

TEST_F(SafeFile, StrictReadingSaysWhichRuleIsBroken) {
  const auto problem = [&](const std::string& name, const StrictReadRules& rules) {
    try {
      static_cast<void>(readStrictly(folder, name, rules));
    } catch (const StrictReadError& error) {
      return error.which();
    }
    throw std::runtime_error(name + " was read");
  };
  using enum StrictReadErrorCase;
  const StrictReadRules rules{.owner = ::geteuid(), .widestMode = 0600, .mostBytes = 5};
  replaceFile(folder, "a", "12345", 0600);
  replaceFile(folder, "large", "123456", 0400);
  replaceFile(folder, "open", "1", 0640);
  fs::create_symlink("a", path("link"));
  fs::create_directory(path("folder"));
  ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);

  EXPECT_EQ(readStrictly(folder, "a", rules), "12345");
  EXPECT_EQ(readStrictly(folder, "open", {rules.owner, 0640, 1}), "1");
  EXPECT_EQ(problem("none", rules), missing);
  EXPECT_EQ(problem("link", rules), link);
  EXPECT_EQ(problem("folder", rules), notAFile);
  EXPECT_EQ(problem("fifo", rules), notAFile);
  EXPECT_EQ(problem("large", rules), tooLarge);
  EXPECT_EQ(problem("open", rules), openToOthers);
  EXPECT_EQ(problem("a", {rules.owner + 1, 0600, 5}), wrongOwner);
}

TEST_F(SafeFile, KeepsTheOldFileWhenTheNewOneDoesNotFit) {
  replaceFile(folder, "a", "old", 0600);
  {
    const testing::FileSizeLimit limit(1000);
    EXPECT_EQ(errnoOf([&] { replaceFile(folder, "a", std::string(5000, 'x'), 0600); }), EFBIG);
  }
  EXPECT_EQ(content("a"), "old");
  EXPECT_THAT(namesIn(temporary.path()), ::testing::ElementsAre("a"));
}

TEST_F(SafeFile, ReplacesALinkAndNotWhatItLeadsTo) {
  std::ofstream(path("target")) << "untouched";
  fs::create_symlink(path("target"), path("a"));
  replaceFile(folder, "a", "new", 0600);
  EXPECT_FALSE(fs::is_symlink(path("a")));
  EXPECT_EQ(content("a"), "new");
  EXPECT_EQ(content("target"), "untouched");
}

TEST_F(SafeFile, ReadsRegularFilesUpToTheLimit) {
  replaceFile(folder, "a", "12345", 0600);
  EXPECT_EQ(readSmallFile(path("a"), 5), "12345");
  EXPECT_EQ(errnoOf([&] { (void)readSmallFile(path("a"), 4); }), EFBIG);
  EXPECT_EQ(readSmallFile(path("none"), 5), std::nullopt);
  ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(errnoOf([&] { (void)readSmallFile(path("fifo"), 5); }), EINVAL);
  EXPECT_EQ(errnoOf([&] { (void)readSmallFile(temporary.path(), 5); }), EINVAL);
  EXPECT_EQ(errnoOf([&] { (void)readSmallFile(path("a/b"), 5); }), ENOTDIR);
  // Its size is stated as 0 and is not.
  EXPECT_GT(readSmallFile("/proc/self/status", 1U << 20U)->size(), 100U);
  EXPECT_EQ(errnoOf([&] { (void)readSmallFile("/proc/self/status", 100); }), EFBIG);
}

TEST_F(SafeFile, ClearsUpAfterWritersThatWereKilled) {
  replaceFile(folder, "a", "kept", 0600);
  for (const char* const name :
       {".a.abcdefghij23", ".a.ABCDEFGHIJ23", ".a.short", ".b.abcdefghij23", "a.abcdefghij23"}) {
    std::ofstream(path(name)) << "x";
  }
  fs::create_directory(path(".a.zzzzzzzzzzzz"));
  removeAbandonedTemporaries(folder, "a");
  EXPECT_THAT(namesIn(temporary.path()),
              ::testing::ElementsAre(".a.ABCDEFGHIJ23", ".a.short", ".a.zzzzzzzzzzzz", ".b.abcdefghij23", "a",
                                     "a.abcdefghij23"));
}

TEST_F(SafeFile, SetsFilesAsideUnderNamesOfTheirOwn) {
  for (const char* const expected : {"a.broken", "a.broken-2", "a.broken-3"}) {
    replaceFile(folder, "a", expected, 0600);
    EXPECT_EQ(setFileAside(folder, "a"), expected);
    EXPECT_EQ(content(expected), expected);
  }
  EXPECT_FALSE(fs::exists(path("a")));
  EXPECT_EQ(errnoOf([&] { (void)setFileAside(folder, "a"); }), ENOENT);
}

}  // namespace
}  // namespace molvane
