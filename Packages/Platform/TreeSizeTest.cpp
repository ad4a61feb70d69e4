#include "Platform/TreeSize.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

#include "Platform/DirectoryHandle.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

class TreeSizeTest : public ::testing::Test {
 protected:
  void write(const std::string& name, std::size_t bytes) const {
    const fs::path path = fs::path(scratch_.path()) / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path) << std::string(bytes, 'x');
  }

  [[nodiscard]] std::int64_t size(std::size_t limit = kMostEntriesMeasured) const {
    return logicalSize(openFolder(scratch_.path()), limit);
  }

  TemporaryFolder scratch_;
};

TEST_F(TreeSizeTest, AddsTheRegularFilesThatThePersonSees) {
  EXPECT_EQ(size(), 0);
  write("a", 1);
  write("folder/b", 20);
  write("folder/deeper/c", 300);
  write(".hidden", 1'000'000);
  write("folder/.hidden/c", 1'000'000);
  write("Game.app/Contents/Info.plist", 1'000'000);
  write("folder/PLUGIN.Bundle/x", 1'000'000);
  write("application/x", 4'000);  // no extension: an ordinary folder
  write("lone.app", 50'000);      // a file is no package
  fs::create_symlink("a", fs::path(scratch_.path()) / "link");
  fs::create_directory_symlink("/usr", fs::path(scratch_.path()) / "usr");
  ASSERT_EQ(mkfifo((scratch_.path() + "/fifo").c_str(), 0600), 0);
  EXPECT_EQ(size(), 54'321);

  // What counts is the length, not the space on the disk.
  fs::resize_file(fs::path(scratch_.path()) / "a", 1U << 30U);
  EXPECT_EQ(size(), 54'320 + (1 << 30));
}

TEST_F(TreeSizeTest, ExaminesNoMoreEntriesThanTheLimit) {
  for (int i = 0; i < 10; ++i) {
    for (int k = 0; k < 10; ++k) write(std::to_string(i) + "/" + std::to_string(k), 1);
    write(std::to_string(i) + "/.uncounted", 1);
  }
  // Ten folders are ten of the entries, wherever among them the limit falls.
  EXPECT_EQ(size(110), 100);
  EXPECT_EQ(size(109), 99);
  EXPECT_EQ(size(10), 0);
  EXPECT_EQ(size(0), 0);
}

TEST(TreeSizeOverflowTest, ATotalThatDoesNotFitEndsTheProcess) {
  // Of the file systems at hand only one in memory has files that large.
  std::string folder = "/dev/shm/molvane-test-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) GTEST_SKIP() << "no file system in memory";
  std::error_code tooLarge;
  for (const char* name : {"/a", "/b"}) {
    std::ofstream(folder + name).close();
    fs::resize_file(folder + name, std::numeric_limits<std::int64_t>::max() - 4096, tooLarge);
  }
  if (!tooLarge) {
    EXPECT_DEATH(static_cast<void>(logicalSize(openFolder(folder))), "does not fit into 64 bits");
  }
  fs::remove_all(folder);
  if (tooLarge) GTEST_SKIP() << "this file system has no files that large";
}

}  // namespace
}  // namespace molvane
