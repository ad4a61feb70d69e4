#include "Platform/RawDevice.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>

#include "Platform/ChildProcess.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/PageBuffer.hpp"
#include "Platform/ProcessDirectories.hpp"
#include "Platform/linux/testing/LoopDevice.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;
using Access = RawDeviceRequest::Access;

constexpr std::int64_t kSize = 8 * 1024 * 1024;

// The helper's own folder, made for the test where there is no helper.
class HelperFolder {
 public:
  HelperFolder() : isOurs_(fs::create_directory(runtimeDirectory())) {}
  ~HelperFolder() {
    std::error_code ignored;
    fs::remove(writing(), ignored);
    if (isOurs_) fs::remove(runtimeDirectory(), ignored);
  }
  HelperFolder(const HelperFolder&) = delete;
  HelperFolder& operator=(const HelperFolder&) = delete;

  static std::string writing() { return runtimeDirectory() + "/writing"; }

 private:
  const bool isOurs_;
};

// A mounted volume that is in no folder: it ends with the object, or with the process.
class MountedVolume {
 public:
  explicit MountedVolume(const std::string& device) {
    const FileDescriptor volume(::fsopen("ext4", FSOPEN_CLOEXEC));
    if (::fsconfig(volume.get(), FSCONFIG_SET_STRING, "source", device.c_str(), 0) == 0 &&
        ::fsconfig(volume.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) == 0) {
      mount_ = FileDescriptor(::fsmount(volume.get(), FSMOUNT_CLOEXEC, 0));
    }
    if (!mount_) error_ = errno;
  }
  // 0 or an errno value.
  [[nodiscard]] int error() const { return error_; }

 private:
  FileDescriptor mount_;
  int error_ = 0;
};

class RawDeviceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root: loop devices";
    std::ofstream{file_};
    fs::resize_file(file_, kSize);
    loop_.emplace(file_);
  }

  [[nodiscard]] static std::string nameOf(const testing::LoopDevice& loop) {
    return fs::path(loop.path()).filename();
  }

  [[nodiscard]] RawDeviceRequest request(Access access, std::int64_t size = kSize) const {
    return {.path = loop_->path(), .diskName = nameOf(*loop_), .sizeBytes = size, .access = access};
  }

  [[nodiscard]] std::unique_ptr<RawDevice> open(Access access) const {
    return openRawDevice(request(access));
  }

  [[nodiscard]] static int refusal(const RawDeviceRequest& request) {
    try {
      static_cast<void>(openRawDevice(request));
    } catch (const std::system_error& error) {
      return error.code().value();
    }
    return 0;
  }

  [[nodiscard]] bool isClaimed() const {
    const FileDescriptor stranger(::open(loop_->path().c_str(), O_RDONLY | O_EXCL | O_CLOEXEC));
    return !stranger && errno == EBUSY;
  }

  TemporaryFolder folder_;
  const std::string file_ = folder_.path() + "/disk";
  std::optional<testing::LoopDevice> loop_;
};

TEST_F(RawDeviceTest, ReadsBackFromTheDeviceItselfAlignedOrNot) {
  const PageBuffer buffer(8192);
  const std::span<std::byte> bytes = buffer.bytes();
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::byte>(i * 7 + i / 512);
  const std::unique_ptr<RawDevice> device = open(Access::readWrite);
  EXPECT_EQ(device->writeAt(bytes, 4096), (IoResult{8192, 0}));
  EXPECT_EQ(device->writeAt(bytes.first(100), 4096), (IoResult{0, EINVAL}));
  EXPECT_EQ(device->writeAt(bytes.first(512), kSize).error, ENOSPC);
  EXPECT_EQ(device->sync(), 0);

  // What lies below changes; a cache in between would still have the old bytes.
  const std::byte changed{0xEE};
  const FileDescriptor below(::open(file_.c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(::pwrite(below.get(), &changed, 1, 4096 + 5), 1);
  bytes[5] = changed;

  const PageBuffer again(8192);
  EXPECT_EQ(device->readAt(again.bytes(), 4096), (IoResult{8192, 0}));
  EXPECT_EQ(std::memcmp(again.bytes().data(), bytes.data(), 8192), 0);

  std::array<std::byte, 8192> odd{};
  for (std::size_t at = 0; at < 3000;) {
    const IoResult read =
        device->readAt(std::span(odd).subspan(at, 3000 - at), 4096 + 700 + static_cast<std::int64_t>(at));
    ASSERT_EQ(read.error, 0);
    ASSERT_GT(read.count, 0U);
    at += read.count;
  }
  EXPECT_EQ(std::memcmp(odd.data(), bytes.data() + 700, 3000), 0);
  EXPECT_EQ(device->readAt(again.bytes(), kSize), (IoResult{0, 0}));
  EXPECT_EQ(device->readAt(again.bytes(), kSize - 512), (IoResult{512, 0}));

  // Its medium is taken out: the system itself would report no more than the end.
  fs::resize_file(file_, 0);
  const FileDescriptor drive(::open(loop_->path().c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::ioctl(drive.get(), LOOP_SET_CAPACITY, 0), 0);
  EXPECT_EQ(device->readAt(again.bytes(), 0), (IoResult{0, ENOMEDIUM, true}));
}

TEST_F(RawDeviceTest, OpensOnlyTheDiskThatWasMeant) {
  EXPECT_EQ(refusal(request(Access::read, kSize + 512)), ENODEV);
  EXPECT_EQ(refusal(request(Access::write, kSize - 512)), ENODEV);
  RawDeviceRequest other = request(Access::write);
  for (const std::string& path : {file_, std::string("/dev/null"), folder_.path(), file_ + "missing"}) {
    other.path = path;
    EXPECT_EQ(refusal(other), path.ends_with("missing") ? ENOENT : ENOTBLK) << path;
  }

  // A node that leads to another disk of the same size than its name says.
  const std::string file = folder_.path() + "/other";
  std::ofstream{file};
  fs::resize_file(file, kSize);
  const testing::LoopDevice disk(file);
  other.path = disk.path();
  EXPECT_EQ(refusal(other), ENODEV);
  other.diskName = "disk4";
  EXPECT_EQ(refusal(other), ENODEV) << "there is none of that name";
  other.diskName = nameOf(disk);
  EXPECT_EQ(refusal(other), 0);
  EXPECT_FALSE(isClaimed());
}

TEST_F(RawDeviceTest, IsNotWrittenWhileAVolumeOfItIsMounted) {
  ChildProcess mkfs({"/sbin/mkfs.ext4", {"-q", loop_->path()}, ChildProcess::StandardInput::null});
  ASSERT_TRUE(mkfs.pump(ChildProcess::Clock::now() + std::chrono::seconds(60), [](std::string_view) {}));
  ASSERT_EQ(mkfs.terminationStatus(), 0);
  {
    const MountedVolume volume(loop_->path());
    ASSERT_EQ(volume.error(), 0);
    EXPECT_EQ(refusal(request(Access::write)), EBUSY);
    EXPECT_EQ(refusal(request(Access::readWrite)), EBUSY);
    EXPECT_EQ(refusal(request(Access::read)), 0);
  }

  // The same through a loop device over the disk, and one over that.
  const testing::LoopDevice over(loop_->path());
  const testing::LoopDevice onTop(over.path());
  for (const std::string& way : {over.path(), onTop.path()}) {
    const MountedVolume volume(way);
    ASSERT_EQ(volume.error(), 0);
    EXPECT_EQ(refusal(request(Access::write)), EBUSY);
  }

  const std::unique_ptr<RawDevice> device = open(Access::write);
  for (const std::string& way : {loop_->path(), over.path(), onTop.path()}) {
    EXPECT_EQ(MountedVolume(way).error(), EBUSY) << way;
  }
}

TEST_F(RawDeviceTest, ClaimsAndMarksTheDiskUntilTheLastWriterHasGone) {
  const HelperFolder helperFolder;
  const std::string marker = HelperFolder::writing() + "/" + nameOf(*loop_);
  std::unique_ptr<RawDevice> first = open(Access::write);
  EXPECT_TRUE(isClaimed());
  EXPECT_TRUE(fs::exists(marker));
  std::unique_ptr<RawDevice> second = open(Access::readWrite);
  first.reset();
  EXPECT_TRUE(isClaimed());
  EXPECT_TRUE(fs::exists(marker));
  second.reset();
  EXPECT_FALSE(isClaimed());
  EXPECT_FALSE(fs::exists(marker));

  const std::unique_ptr<RawDevice> reader = open(Access::read);
  EXPECT_FALSE(isClaimed());
  EXPECT_FALSE(fs::exists(marker));

  std::ofstream{marker};  // of one that was killed
  forgetDisksOfEarlierHelper();
  EXPECT_FALSE(fs::exists(HelperFolder::writing()));
}

}  // namespace
}  // namespace molvane
