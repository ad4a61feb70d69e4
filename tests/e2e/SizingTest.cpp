#include <gtest/gtest.h>
#include <sys/mount.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>

#include "Harness.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;

void expectSize(const fs::path& path, std::uintmax_t bytes) {
  const Outcome outcome = molvanectl({"size", path});
  EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
  EXPECT_EQ(outcome.out, std::to_string(bytes) + "\n");
}

TEST(Sizing, AddsUpRegularFilesOnly) {
  const CacheFolder folder("sizing");
  writeFile(folder / "one", std::string(1000, 'x'));
  writeFile(folder / "deep/er/two", std::string(200, 'x'));
  writeFile(folder / "empty", "");
  fs::create_symlink("one", folder / "link");
  fs::create_directory_symlink("/usr", folder / "folder-link");
  writeFile(folder / ".hidden", std::string(10000, 'x'));
  writeFile(folder / ".hidden-folder/file", std::string(10000, 'x'));
  writeFile(folder / "Some.app/Contents/MacOS/Some", std::string(10000, 'x'));
  expectSize(folder.path(), 1200);
  expectSize(folder / "deep/", 200);
  expectSize(folder / "one", 1000);
}

TEST(Sizing, LooksAtTwentyThousandEntriesAndNoMore) {
  const CacheFolder folder("sizing");
  for (int i = 0; i < 25000; ++i) writeFile(folder / std::to_string(i), "x");
  expectSize(folder.path(), 20000);
}

// A folder that even root cannot list: the descriptors of a process that has ended.
TEST(Sizing, PassesOverAnUnreadableFolder) {
  const CacheFolder folder("sizing");
  writeFile(folder / "readable/file", std::string(300, 'x'));
  fs::create_directory(folder / "unreadable");
  {
    const Program process({"/usr/bin/sleep", "3600"});
    const std::string descriptors = "/proc/" + std::to_string(process.pid()) + "/fd";
    ASSERT_EQ(mount(descriptors.c_str(), (folder / "unreadable").c_str(), nullptr, MS_BIND, nullptr), 0)
        << std::strerror(errno);
  }
  std::error_code unreadable;
  const fs::directory_iterator listing(folder / "unreadable", unreadable);
  EXPECT_TRUE(unreadable || listing == fs::directory_iterator()) << "the folder can be read after all";
  expectSize(folder.path(), 300);
  EXPECT_EQ(umount2((folder / "unreadable").c_str(), MNT_DETACH), 0);
}

TEST(Sizing, FilesMayComeAndGoMeanwhile) {
  const CacheFolder folder("sizing");
  for (int i = 0; i < 500; ++i) writeFile(folder / ("stays" + std::to_string(i)), "xx");
  std::atomic<bool> stop = false;
  std::thread churn([&] {
    for (int i = 0; !stop; ++i) {
      const fs::path passing = folder / ("passing" + std::to_string(i % 50));
      writeFile(passing / "file", "y");
      fs::remove_all(passing);
    }
  });
  for (int round = 0; round < 50; ++round) {
    const Outcome outcome = molvanectl({"size", folder.path()});
    EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
    const int bytes = std::atoi(outcome.out.c_str());
    EXPECT_GE(bytes, 1000);
    EXPECT_LE(bytes, 1050);
  }
  stop = true;
  churn.join();
}

}  // namespace
}  // namespace molvane::e2e
