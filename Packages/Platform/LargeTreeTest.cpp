// Trees that are large enough for helper threads to take part.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <thread>

#include "Platform/DirectoryHandle.hpp"
#include "Platform/TreeRemoval.hpp"
#include "Platform/TreeSize.hpp"
#include "Platform/testing/TemporaryFolder.hpp"
#include "Platform/testing/ToolFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

class LargeTreeTest : public ::testing::Test {
 protected:
  static constexpr int kFolders = 24;
  static constexpr int kSubfolders = 3;
  static constexpr int kFiles = 15;

  [[nodiscard]] std::string at(const std::string& name) const { return scratch_.path() + "/" + name; }

  static void write(const std::string& path) { std::ofstream(path) << "12345"; }

  // Folders of folders of files, with a link that leads out in each.
  void makeTree(const std::string& name) const {
    for (int folder = 0; folder < kFolders; ++folder) {
      for (int subfolder = 0; subfolder < kSubfolders; ++subfolder) {
        const std::string path = at(name) + "/" + std::to_string(folder) + "/" + std::to_string(subfolder);
        fs::create_directories(path);
        for (int file = 0; file < kFiles; ++file) write(path + "/" + std::to_string(file));
        fs::create_directory_symlink(at("outside"), path + "/link");
      }
    }
  }

  void makeOutside() const {
    fs::create_directory(at("outside"));
    for (int file = 0; file < kFiles; ++file) write(at("outside/") + std::to_string(file));
  }

  [[nodiscard]] bool isOutsideWhole() const {
    return std::distance(fs::directory_iterator(at("outside")), {}) == kFiles;
  }

  // 0, or the errno of the removal.
  [[nodiscard]] int remove(const std::string& name) const {
    try {
      removeItem(walkToItem(scratch_.path(), at(name)));
    } catch (const std::system_error& error) {
      return error.code().value();
    }
    return 0;
  }

  static bool isVisitedFirst(const std::string& folder, const std::string& other) {
    struct stat a {};
    struct stat b {};
    return ::lstat(folder.c_str(), &a) == 0 && ::lstat(other.c_str(), &b) == 0 && a.st_ino < b.st_ino;
  }

  TemporaryFolder scratch_;
};

TEST_F(LargeTreeTest, IsRemovedWhole) {
  makeOutside();
  makeTree("tree");
  // A chain beside it: the helper is given its top and hands back what is left, level by level.
  std::string chain = at("tree/chain");
  for (int level = 0; level < 60; ++level) fs::create_directories(chain += "/below/beside/..");
  const int before = testing::openDescriptorCount();
  EXPECT_EQ(remove("tree"), 0);
  EXPECT_FALSE(fs::exists(at("tree")));
  EXPECT_TRUE(isOutsideWhole());
  EXPECT_EQ(testing::openDescriptorCount(), before);
}

TEST_F(LargeTreeTest, SwappingFoldersForLinksNeverLeadsOutside) {
  makeOutside();
  for (int round = 0; round < 12; ++round) {
    makeTree("tree");
    fs::create_directory_symlink(at("outside"), at("link"));
    std::atomic<bool> stop = false;
    // Each folder in turn has its name taken by a link for a moment, at the top as well as further down.
    std::thread attacker([&] {
      for (int turn = 0; !stop; ++turn) {
        const std::string folder = at("tree/") + std::to_string(turn % kFolders);
        const std::string swapped =
            turn % 2 == 0 ? folder : folder + "/" + std::to_string(turn % kSubfolders);
        for (int times = 0; times < 2; ++times)
          renameat2(AT_FDCWD, at("link").c_str(), AT_FDCWD, swapped.c_str(), RENAME_EXCHANGE);
      }
    });
    const int error = remove("tree");
    stop = true;
    attacker.join();
    EXPECT_TRUE(error == 0 || error == ENOTEMPTY || error == ESTALE) << error;
    EXPECT_TRUE(error == 0 || remove("tree") == 0);
    fs::remove_all(at("link"));
    ASSERT_TRUE(isOutsideWhole()) << "round " << round;
  }
}

TEST_F(LargeTreeTest, AFolderMovedAwayDoesNotTakeTheRemovalAlong) {
  constexpr int kDepth = 80;
  constexpr int kFilesBelow = 1'000;
  constexpr int kMostRounds = 50;
  makeOutside();
  fs::create_directory(at("outside/next"));
  write(at("outside/next/kept"));
  bool wasMovedInTime = false;
  for (int round = 0; round < kMostRounds && !wasMovedInTime; ++round) {
    // Next to each folder of a chain stands one that is visited when the walk comes back up.
    std::string folder = at("tree");
    std::string moved;
    for (int level = 0; level < kDepth; ++level) {
      const std::string down = folder + "/down";
      const std::string next = folder + "/next";
      fs::create_directories(down);
      fs::create_directory(next);
      if (!isVisitedFirst(down, next))
        renameat2(AT_FDCWD, down.c_str(), AT_FDCWD, next.c_str(), RENAME_EXCHANGE);
      if (level == kDepth / 2) moved = down;
      folder = down;
    }
    for (int file = 0; file < kFilesBelow; ++file) write(folder + "/" + std::to_string(file));

    // Moved as soon as the walk is at work down there, so that ".." leads to the outside when it comes back.
    std::atomic<bool> stop = false;
    std::thread attacker([&] {
      while (!stop && fs::exists(folder + "/0")) {
      }
      ::rename(moved.c_str(), at("outside/moved").c_str());
    });
    const int error = remove("tree");
    stop = true;
    attacker.join();
    EXPECT_TRUE(error == 0 || error == ESTALE) << error;
    wasMovedInTime = error == ESTALE;
    EXPECT_TRUE(fs::exists(at("outside/next/kept")));
    fs::remove_all(at("tree"));
    fs::remove_all(at("outside/moved"));
  }
  EXPECT_TRUE(wasMovedInTime);
}

// A file that even root cannot remove, for as long as the object lives.
class ImmutableFile {
 public:
  explicit ImmutableFile(const std::string& path) : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    isSet_ = setFlags(FS_IMMUTABLE_FL);
  }
  ~ImmutableFile() {
    if (isSet_) setFlags(0);
  }
  ImmutableFile(const ImmutableFile&) = delete;
  ImmutableFile& operator=(const ImmutableFile&) = delete;

  [[nodiscard]] bool isSet() const { return isSet_; }

 private:
  bool setFlags(int flags) const { return ::ioctl(file_.get(), FS_IOC_SETFLAGS, &flags) == 0; }

  FileDescriptor file_;
  bool isSet_ = false;
};

TEST_F(LargeTreeTest, WhatCannotBeRemovedIsReportedWhicheverThreadMeetsIt) {
  makeOutside();
  makeTree("tree");
  std::deque<ImmutableFile> files;
  for (int folder = 0; folder < kFolders; ++folder) {
    files.emplace_back(at("tree/") + std::to_string(folder) + "/1/1");
    if (!files.back().isSet()) GTEST_SKIP() << "needs root and a file system with protected files";
  }
  EXPECT_EQ(remove("tree"), EPERM);
  for (int folder = 0; folder < kFolders; ++folder)
    EXPECT_TRUE(fs::exists(at("tree/") + std::to_string(folder) + "/1/1"));
  files.clear();
  EXPECT_EQ(remove("tree"), 0);
}

TEST_F(LargeTreeTest, IsMeasuredWhole) {
  makeOutside();
  makeTree("tree");
  const int before = testing::openDescriptorCount();
  const auto size = [&](std::size_t limit) { return logicalSize(openFolder(at("tree")), limit); };
  constexpr int kEntries = kFolders * (1 + kSubfolders * (1 + kFiles + 1));
  EXPECT_EQ(size(kEntries), 5 * kFolders * kSubfolders * kFiles);
  EXPECT_GE(size(kEntries / 2), 5 * (kEntries / 2 - kFolders * (1 + 2 * kSubfolders)));
  EXPECT_LE(size(kEntries / 2), 5 * (kEntries / 2));
  EXPECT_EQ(testing::openDescriptorCount(), before);
}

TEST_F(LargeTreeTest, IsMeasuredInPartWhileItVanishes) {
  makeOutside();
  for (int round = 0; round < 6; ++round) {
    makeTree("tree");
    FileDescriptor folder = openFolder(at("tree"));
    std::thread rival([&] { EXPECT_EQ(remove("tree"), 0); });
    const std::int64_t size = logicalSize(std::move(folder));
    rival.join();
    EXPECT_GE(size, 0);
    EXPECT_LE(size, 5 * kFolders * kSubfolders * kFiles);
  }
}

}  // namespace
}  // namespace molvane
