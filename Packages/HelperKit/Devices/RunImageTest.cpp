#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "Base/Sha256.hpp"
#include "HelperKit/Devices/ChunkStream.hpp"
#include "HelperKit/Devices/DeviceJobWork.hpp"
#include "HelperKit/Devices/testing/FakeDisk.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;
using testing::FakeDisk;
using testing::noise;
using Phase = DeviceJobStatus::Phase;

constexpr std::size_t kChunk = ChunkBuffer::kChunkSize;

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class RunImageTest : public ::testing::Test {
 protected:
  RunImageTest() { table_.add(id_, {}); }
  void TearDown() override { EXPECT_EQ(disk_.openCount, 0); }

  DeviceJobStatus run(std::int64_t blockSize = 512) {
    DeviceJob job(table_, id_);
    runImage(job, disk_.opener(),
             {.facts = {.bsdName = "disk4",
                        .sizeBytes = static_cast<std::int64_t>(disk_.content.size()),
                        .blockSize = blockSize},
              .destination = path_,
              .ownerUID = owner_,
              .peerUID = peer_});
    return table_.status(id_).value();
  }

  DeviceJobStatus again(std::int64_t blockSize = 512) {
    fs::remove(path_);
    table_.add(id_, {});
    return run(blockSize);
  }

  [[nodiscard]] std::string begin() const { return "Reading /dev/rdisk4 → " + path_ + "\n"; }

  [[nodiscard]] DeviceJobStatus finished(const std::string& image, std::int64_t badBlocks) const {
    const std::string digest = hexText(sha256(image));
    return {.phase = Phase::finished,
            .bytesDone = static_cast<std::int64_t>(image.size()),
            .badBlocks = badBlocks,
            .sha256 = digest,
            .log = begin() + "Done. SHA-256 " + digest + "\n" + std::to_string(badBlocks) +
                   " unreadable block(s) zero-filled.\n"};
  }

  [[nodiscard]] DeviceJobStatus failed(const std::string& message, std::int64_t bytesDone = 0) const {
    return {
        .phase = Phase::failed, .bytesDone = bytesDone, .log = begin() + message + "\n", .error = message};
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.path() + "/copy.img";
  std::uint32_t owner_ = geteuid() == 0 ? 501 : geteuid();
  std::uint32_t peer_ = geteuid();
  FakeDisk disk_{noise(2 * kChunk + 512 * 3)};
  DeviceJobTable table_;
  std::string id_ = "job";
  bool isCancelled_ = false;
};

TEST_F(RunImageTest, ZeroFillsExactlyTheUnreadableBlocks) {
  EXPECT_EQ(run(), finished(disk_.content, 0));
  EXPECT_EQ(disk_.reads, 3) << "a healthy disk is read in whole chunks";
  const auto sectors = static_cast<std::int64_t>(disk_.content.size() / 512);
  const auto border = static_cast<std::int64_t>(kChunk / 512);
  std::set<std::int64_t> thousands;
  for (std::int64_t sector = 1000; sector < 1000 + 3 * 4000; sector += 3) thousands.insert(sector);
  std::set<std::int64_t> everyHundredth;
  for (std::int64_t i = 0; i < 64; ++i) everyHundredth.insert(i * 200);
  const std::vector<std::set<std::int64_t>> damages = {
      {0}, {sectors - 1}, {border - 1, border}, {0, 1, 2, border * 2 - 1}, everyHundredth, thousands};
  for (const std::int64_t blockSize : {512, 4096}) {
    for (const std::set<std::int64_t>& damage : damages) {
      disk_.badSectors = damage;
      std::string expected = disk_.content;
      std::set<std::int64_t> badBlocks;
      for (const std::int64_t sector : damage) badBlocks.insert(sector * 512 / blockSize);
      for (const std::int64_t block : badBlocks) {
        const auto at = static_cast<std::size_t>(block * blockSize);
        const std::size_t length = std::min(static_cast<std::size_t>(blockSize), expected.size() - at);
        expected.replace(at, length, length, '\0');
      }
      EXPECT_EQ(again(blockSize), finished(expected, static_cast<std::int64_t>(badBlocks.size())));
      EXPECT_EQ(contentOf(path_) == expected, true) << blockSize << " " << damage.size();
    }
  }
}

TEST_F(RunImageTest, EndsWhereTheDiskEndsAndFailsWhereItIsPulledOut) {
  disk_.readEndsAt = kChunk + 512;
  EXPECT_EQ(run(), finished(disk_.content.substr(0, kChunk + 512), 0));

  disk_.readEndsAt = std::numeric_limits<std::int64_t>::max();
  disk_.badSectors = {3, kChunk / 512 + 8000};
  std::string good = disk_.content.substr(0, kChunk);
  good.replace(512 * 3, 512, 512, '\0');
  // With the request for a chunk, while the chunk with the second unreadable block is rescued, and where the
  // system notices it only after the last block.
  for (const std::int64_t after : {std::int64_t{kChunk}, std::int64_t{kChunk} + 512 * 7000}) {
    disk_.isGone = false;
    disk_.onRequest = [&](FakeDisk::Request, std::int64_t at) { disk_.isGone = disk_.isGone || at >= after; };
    DeviceJobStatus expected = failed("Read failed: No such device", kChunk);
    expected.badBlocks = 1;
    expected.log.insert(begin().size(),
                        "The image is incomplete: its first 4194304 bytes are good, "
                        "1 unreadable block(s) zero-filled.\n");
    EXPECT_EQ(again(), expected);
    EXPECT_TRUE(contentOf(path_) == good);
  }
  disk_.isGone = false;
  disk_.onRequest = [&](FakeDisk::Request, std::int64_t) {
    disk_.isGone = table_.status(id_)->bytesDone == static_cast<std::int64_t>(disk_.content.size());
  };
  // What did not read just before that was lost with the disk.
  disk_.badSectors = {3, 16383, 16384, 16385, 16386};
  const DeviceJobStatus status = again();
  EXPECT_EQ(status.error, "Read failed: No such device");
  EXPECT_NE(status.log.find("its first 8388096 bytes are good, 5 unreadable"), std::string::npos);
}

TEST_F(RunImageTest, NeverReplacesOrFollowsWhatStandsAtTheDestination) {
  const auto cannotCreate = [&](const std::string& reason) {
    table_.add(id_, {});
    EXPECT_EQ(run(), failed("Cannot create " + path_ + ": " + reason));
  };
  std::ofstream(path_) << "mine";
  cannotCreate("File exists");
  EXPECT_EQ(contentOf(path_), "mine");
  fs::remove(path_);
  fs::create_symlink(folder_.path() + "/elsewhere", path_);
  cannotCreate("File exists");
  EXPECT_FALSE(fs::exists(folder_.path() + "/elsewhere"));
  fs::remove(path_);

  fs::create_directory(folder_.path() + "/real");
  fs::create_directory_symlink(folder_.path() + "/real", folder_.path() + "/link");
  path_ = folder_.path() + "/link/copy.img";
  cannotCreate("Too many levels of symbolic links");
  EXPECT_TRUE(fs::is_empty(folder_.path() + "/real"));
  path_ = folder_.path() + "/gone/copy.img";
  cannotCreate("No such file or directory");

  if (geteuid() == 0) {
    // The person's rights count, on the folder itself and on the way to it.
    peer_ = 501;
    fs::create_directory(folder_.path() + "/open");
    path_ = folder_.path() + "/open/copy.img";
    fs::permissions(folder_.path() + "/open", fs::perms(0777));
    cannotCreate("Permission denied");
    fs::permissions(folder_.path(), fs::perms(0711));
    table_.add(id_, {});
    EXPECT_EQ(run().phase, Phase::finished);
    path_ = folder_.path() + "/copy.img";
    cannotCreate("Permission denied");
  }

  disk_.openError = EBUSY;
  table_.add(id_, {});
  EXPECT_EQ(run(), failed("Cannot open device: Device or resource busy. Is it unmounted?"));
}

TEST_F(RunImageTest, KeepsThePartThatFitted) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root: a small file system";
  const std::string small = folder_.path() + "/small";
  fs::create_directory(small);
  ASSERT_EQ(mount("tmpfs", small.c_str(), "tmpfs", 0, "size=6m"), 0);
  const auto unmount = [](const std::string* path) { umount2(path->c_str(), MNT_DETACH); };
  const std::unique_ptr<const std::string, decltype(unmount)> mounted(&small, unmount);
  path_ = small + "/copy.img";
  EXPECT_EQ(run(), failed("Write failed: No space left on device", kChunk));
  EXPECT_EQ(contentOf(path_), disk_.content.substr(0, fs::file_size(path_)));
}

TEST_F(RunImageTest, RemovesThePartialImageWhenCancelled) {
  const auto cancelAt = [&](
                            std::int64_t offset, const std::function<void()>& also = [] {}) {
    disk_.onRequest = [this, offset, also](FakeDisk::Request, std::int64_t at) {
      if (at < offset || isCancelled_) return;
      isCancelled_ = true;
      also();
      EXPECT_TRUE(table_.cancel(id_));
    };
    isCancelled_ = false;
    id_ += "'";  // one that was cancelled stays so
    const DeviceJobStatus status = again();
    EXPECT_EQ(status.phase, Phase::cancelled);
    EXPECT_EQ(status.log, begin());
    EXPECT_EQ(status.error, std::nullopt);
  };
  cancelAt(0);
  EXPECT_FALSE(fs::exists(path_));
  cancelAt(kChunk);
  EXPECT_FALSE(fs::exists(path_));

  // In the middle of a rescue that would take its time.
  for (std::int64_t sector = 0; sector < 8192; ++sector) disk_.badSectors.insert(sector);
  disk_.reads = 0;
  cancelAt(512 * 100);
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_LT(disk_.reads, 1000);

  // What took the file's name meanwhile is not ours to remove.
  disk_.badSectors.clear();
  cancelAt(kChunk, [&] {
    fs::rename(path_, folder_.path() + "/moved");
    std::ofstream(path_) << "another";
  });
  EXPECT_EQ(contentOf(path_), "another");
}

}  // namespace
}  // namespace molvane
