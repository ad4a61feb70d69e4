#include "Platform/Mounts.hpp"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Platform/linux/MountTable.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

TEST(MountTableTest, readsTheKernelsLinesAndLeavesOthersOut) {
  const std::vector<Mount> mounts = parseMountTable(
      "27 1 254:0 / / rw,relatime - ext4 /dev/vda rw,discard\n"
      "28 27 0:25 /root /mnt/a\\040b\\134c\\012d\\0 ro shared:1 master:2 - btrfs /dev/mapper/x\\040y rw\n"
      "29 27 0:26 / /none rw - tmpfs  rw\n"    // a source that is empty
      "30 27 0:27 / /short rw - tmpfs\n"       // no source
      "31 27 0-28 / /number rw - tmpfs a b\n"  // no device number
      "x 27 0:28 / /number rw - tmpfs a b\n"
      "32 27 0:29 / /dashless rw shared:1 tmpfs a b\n"
      "\n"
      "33 27 8:1 / / rw - xfs /dev/sda1 rw");
  const std::vector<Mount> expected = {{27, 254, 0, "/", "ext4", "/dev/vda"},
                                       {28, 0, 25, "/mnt/a b\\c\nd\\0", "btrfs", "/dev/mapper/x y"},
                                       {29, 0, 26, "/none", "tmpfs", ""},
                                       {33, 8, 1, "/", "xfs", "/dev/sda1"}};
  EXPECT_EQ(mounts, expected);
}

TEST(MountTableTest, isRefusedWhereItCannotBeRead) {
  const TemporaryFolder scratch;
  EXPECT_THROW((void)readMountTable(scratch.path() + "/none"), std::system_error);
  EXPECT_THROW((void)readMountTable(scratch.path()), std::system_error);
  EXPECT_FALSE(readMountTable().empty());
}

TEST(MountedVolumeTest, ofNoPathIsNone) {
  EXPECT_EQ(mountedVolume("/no/such/path"), std::nullopt);
  EXPECT_EQ(mountedVolume(std::string("/proc\0/x", 8)), std::nullopt);
  EXPECT_EQ(mountedVolume(""), std::nullopt);
}

TEST(MountedVolumeTest, ofTheRootIsOnTheDeviceThatTheKernelNames) {
  const auto volume = mountedVolume("/");
  ASSERT_TRUE(volume);
  EXPECT_EQ(volume->mountedOn, "/");
  EXPECT_EQ(mountedVolume("/proc"), (MountedVolume{"/proc", ""})) << "no disk is mounted there";
  if (volume->mountedFrom.empty()) GTEST_SKIP() << "the root lies on no disk here";
  struct stat root {
  }, device{};
  ASSERT_EQ(stat("/", &root), 0);
  ASSERT_EQ(stat(volume->mountedFrom.c_str(), &device), 0);
  EXPECT_TRUE(S_ISBLK(device.st_mode));
  if (major(root.st_dev) != 0) {
    EXPECT_EQ(device.st_rdev, root.st_dev);
  }
}

// Runs in a mount namespace of a thread's own, so that nothing of it is left.
template <typename Work>
bool amongOwnMounts(Work work) {
  bool done = false;
  std::thread([&] {
    if (unshare(CLONE_NEWNS) != 0 || mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
    done = true;
    work();
  }).join();
  return done;
}

TEST(MountedVolumeTest, knowsTheMountThatCoversAPathAndDoesNotBelieveItsName) {
  const TemporaryFolder scratch;
  const std::string point = scratch.path() + "/a point";
  fs::create_directories(point);
  fs::create_directory_symlink(point, scratch.path() + "/link");
  const auto below = mountedVolume(point);
  std::optional<MountedVolume> named, covered, behindLink, inside, ended;
  const bool could = amongOwnMounts([&] {
    // What calls itself the disk of the root is a memory file system.
    const std::string source = mountedVolume("/").value_or(MountedVolume{}).mountedFrom;
    if (mount(source.c_str(), point.c_str(), "tmpfs", 0, "size=64k") != 0) return;
    named = mountedVolume(point);
    if (mount("nas:/sda", point.c_str(), "tmpfs", 0, "size=64k") != 0) return;
    covered = mountedVolume(point);
    behindLink = mountedVolume(scratch.path() + "/link");
    fs::create_directory(point + "/folder");
    inside = mountedVolume(point + "/folder");
    umount(point.c_str());
    umount(point.c_str());
    ended = mountedVolume(point);
  });
  if (!could) GTEST_SKIP() << "needs a mount namespace of its own";
  const MountedVolume expected = {point, ""};
  EXPECT_EQ(named, expected);
  EXPECT_EQ(covered, expected);
  EXPECT_EQ(behindLink, expected);
  EXPECT_EQ(inside, expected);
  EXPECT_EQ(ended, below);
}

}  // namespace
}  // namespace molvane
