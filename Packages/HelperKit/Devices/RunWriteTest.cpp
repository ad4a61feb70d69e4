#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Base/Sha256.hpp"
#include "HelperKit/Devices/ChunkStream.hpp"
#include "HelperKit/Devices/DeviceJobWork.hpp"
#include "HelperKit/Devices/testing/FakeDisk.hpp"
#include "Platform/testing/TemporaryFolder.hpp"
#include "Platform/testing/ToolFolder.hpp"

namespace molvane {
namespace {

using testing::FakeDisk;
using testing::noise;
using Phase = DeviceJobStatus::Phase;
using Request = FakeDisk::Request;

constexpr std::size_t kChunk = ChunkBuffer::kChunkSize;
const std::string kPartly = "Cancelled — the device is now partially written.\n";

class RunWriteTest : public ::testing::Test {
 protected:
  RunWriteTest() { table_.add("job", {}); }
  void TearDown() override { EXPECT_EQ(disk_.openCount, 0); }

  void makeImage(const std::string& bytes) { std::ofstream(path_, std::ios::binary) << bytes; }

  DeviceJobStatus run(bool verify = true, std::int64_t size = -1, std::int64_t blockSize = 512) {
    WriteWork work{.source = path_,
                   .size = size < 0 ? static_cast<std::int64_t>(std::filesystem::file_size(path_)) : size,
                   .facts = {.bsdName = "disk4",
                             .sizeBytes = static_cast<std::int64_t>(disk_.content.size()),
                             .blockSize = blockSize},
                   .verify = verify,
                   .peerUID = peer_};
    DeviceJob job(table_, "job");
    runWrite(job, disk_.opener(), work);
    return table_.status("job").value();
  }

  [[nodiscard]] std::string begin() const { return "Writing " + path_ + " → /dev/rdisk4\n"; }

  DeviceJobStatus failed(const std::string& log, const std::string& message, std::int64_t bytesDone) const {
    return {.phase = Phase::failed, .bytesDone = bytesDone, .log = log + message + "\n", .error = message};
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_.path() + "/image.img";
  std::uint32_t peer_ = geteuid();
  FakeDisk disk_{4 * kChunk};
  DeviceJobTable table_;
};

TEST_F(RunWriteTest, GoesOnAfterAShortWrite) {
  const std::string image = noise(kChunk + 512);
  makeImage(image);
  disk_.mostAtOnce = 1024 * 1024;
  EXPECT_EQ(run(false).phase, Phase::finished);
  EXPECT_EQ(disk_.content.substr(0, image.size()), image);
}

TEST_F(RunWriteTest, SaysWhyTheImageOrTheDeviceCannotBeOpened) {
  const auto cannotOpen = [&](const std::string& reason) {
    const DeviceJobStatus status = run(true, 100);
    EXPECT_EQ(status, failed(begin(), "Cannot open image: " + reason, 0));
    table_.add("job", {});
  };
  cannotOpen("No such file or directory");
  ASSERT_EQ(mkfifo(path_.c_str(), 0644), 0);
  cannotOpen("Invalid argument");
  std::filesystem::remove(path_);
  std::filesystem::create_symlink("/dev/null", path_);
  cannotOpen("Invalid argument");
  std::filesystem::remove(path_);
  if (geteuid() == 0) {
    makeImage("secret");
    ASSERT_EQ(chown(path_.c_str(), 12345, 0), 0);
    ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
    cannotOpen("Permission denied");
    ASSERT_EQ(chmod(path_.c_str(), 0604), 0);
    peer_ = 54321;
    cannotOpen("Permission denied");  // the folder has mode 0700
    ASSERT_EQ(chmod(folder_.path().c_str(), 0711), 0);
    EXPECT_EQ(run().phase, Phase::finished);
    table_.add("job", {});
  }
  EXPECT_EQ(disk_.openCount, 0);

  makeImage("image");
  disk_.openError = EBUSY;
  EXPECT_EQ(run(),
            failed(begin(), "Cannot open device for writing: Device or resource busy. Unmount it first.", 0));
}

TEST_F(RunWriteTest, FollowsALinkToAnImage) {
  std::filesystem::create_symlink("real.img", path_);
  std::ofstream(folder_.path() + "/real.img") << "content";
  EXPECT_EQ(run().phase, Phase::finished);
  EXPECT_EQ(disk_.content.substr(0, 8), std::string("content\0", 8));
}

TEST_F(RunWriteTest, StopsAtAWriteErrorAndKeepsWhatWasWritten) {
  const std::string image = noise(3 * kChunk);
  makeImage(image);
  disk_.writeFailsAt = 2 * kChunk;
  disk_.writeError = ENOSPC;
  EXPECT_EQ(run(), failed(begin(), "Device write failed: No space left on device", 2 * kChunk));
  EXPECT_EQ(disk_.content, image.substr(0, 2 * kChunk) + std::string(2 * kChunk, '\xAA'));
}

TEST_F(RunWriteTest, FindsADeviceThatLiesOrNoLongerReads) {
  const std::string image = noise(2 * kChunk + 700);
  makeImage(image);
  const std::string verifying = begin() + "Verifying…\n";
  for (const std::size_t at : {std::size_t{0}, kChunk, image.size() - 1}) {
    disk_.liesAt = static_cast<std::int64_t>(at);
    table_.add("job", {});
    EXPECT_EQ(run(), failed(verifying, "Verification failed: device content differs from the image.",
                            static_cast<std::int64_t>(image.size())));
  }
  disk_.liesAt = static_cast<std::int64_t>(image.size());  // padding
  table_.add("job", {});
  EXPECT_EQ(run().phase, Phase::finished);

  disk_.badSectors.insert(kChunk / 512 + 3);
  table_.add("job", {});
  EXPECT_EQ(run(), failed(verifying, "Verify read failed: Input/output error", kChunk));
  disk_.badSectors.clear();
  disk_.readEndsAt = kChunk;
  table_.add("job", {});
  EXPECT_EQ(run(), failed(verifying, "Verify read failed: Input/output error", kChunk));
}

TEST_F(RunWriteTest, TakesAnImageThatChangesForWhatItReads) {
  const std::string image = noise(2 * kChunk);
  makeImage(image.substr(0, kChunk + 700));  // validated when it was longer
  EXPECT_EQ(run(true, 2 * kChunk).error, "Verification failed: device content differs from the image.");
  table_.add("job", {});
  const DeviceJobStatus unverified = run(false, 2 * kChunk);
  EXPECT_EQ(unverified.sha256, hexText(sha256(image.substr(0, kChunk + 700))));
  EXPECT_EQ(unverified.bytesDone, kChunk + 700);

  makeImage(image);  // validated when it was shorter
  table_.add("job", {});
  disk_.content.assign(4 * kChunk, 'z');
  EXPECT_EQ(run(true, kChunk + 512).sha256, hexText(sha256(image.substr(0, kChunk + 512))));
  EXPECT_EQ(disk_.content[kChunk + 512], 'z');
}

TEST_F(RunWriteTest, IsCancelledBeforeTheNextChunkOfEitherPass) {
  const std::string image = noise(3 * kChunk);
  makeImage(image);
  table_.cancel("job");
  EXPECT_EQ(run(), (DeviceJobStatus{.phase = Phase::cancelled, .log = begin() + kPartly}));

  for (const Request pass : {Request::write, Request::read}) {
    DeviceJobTable fresh;
    fresh.add("job", {});
    disk_.onRequest = [&](Request request, std::int64_t offset) {
      if (request == pass && offset == static_cast<std::int64_t>(kChunk)) fresh.cancel("job");
    };
    DeviceJob job(fresh, "job");
    runWrite(job, disk_.opener(),
             {.source = path_,
              .size = 3 * kChunk,
              .facts = {.bsdName = "disk4", .sizeBytes = 4 * kChunk},
              .verify = true,
              .peerUID = geteuid()});
    const DeviceJobStatus status = fresh.status("job").value();
    EXPECT_EQ(status.phase, Phase::cancelled);
    EXPECT_EQ(status.error, std::nullopt);
    EXPECT_EQ(status.log, begin() + (pass == Request::read ? "Verifying…\n" : "") + kPartly);
    // Reading runs ahead of the caller, so a cancelled verification may have come less far.
    EXPECT_LE(status.bytesDone, static_cast<std::int64_t>(2 * kChunk));
    EXPECT_FALSE(fresh.cancel("job"));
  }
}

}  // namespace
}  // namespace molvane
