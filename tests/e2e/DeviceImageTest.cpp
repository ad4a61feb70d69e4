#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <set>

#include "Devices.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::size_t kMiB = std::size_t{1} << 20;
constexpr std::size_t kSector = 512;
constexpr const char* kImage = "/Users/ann/disk.img";

struct DeviceImage : testing::Test {
  void SetUp() override {
    if (!hasDisks()) GTEST_SKIP() << "this machine lends no loop devices";
    fs::remove(kImage);
  }

  /// Removes what a test lays in the way, also when it ends early.
  void TearDown() override {
    fs::remove("/Users/ann/link.img");
    fs::remove("/Users/ann/way");
  }
};

struct FaultyImage : DeviceImage {
  void SetUp() override {
    DeviceImage::SetUp();
    if (!canFail()) GTEST_SKIP() << "this machine has no nbdkit, nbdfuse or /dev/fuse";
  }
};

std::string lastLines(const std::string& content, std::size_t badBlocks) {
  return "Done. SHA-256 " + sha256(content) + "\n" + std::to_string(badBlocks) +
         " unreadable block(s) zero-filled.\n";
}

uid_t ownerOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
  return status.st_uid;
}

TEST_F(DeviceImage, IsTheWholeDiskAndBelongsToThePerson) {
  const AttachedDisk disk("disk7", 9 * kMiB + 3 * kSector);
  const std::string content = noise(9 * kMiB + 3 * kSector);
  disk.setContent(content);
  for (const auto& [owner, expected] :
       {std::pair<std::string, uid_t>{"0", kAnn.uid}, {"501", kAnn.uid}, {"502", kBob.uid}}) {
    fs::remove(kImage);
    const nlohmann::json status = endOf(startJob({"image", "--owner", owner, "disk7", kImage}));
    EXPECT_EQ(status["log"], "Reading /dev/rdisk7 → " + std::string(kImage) + "\n" + lastLines(content, 0));
    EXPECT_EQ(status["sha256"], sha256(content));
    EXPECT_EQ(status["bytesDone"], content.size());
    EXPECT_EQ(status["bytesTotal"], content.size());
    EXPECT_TRUE(readFile(kImage) == content);
    EXPECT_EQ(ownerOf(kImage), expected);
  }
}

TEST_F(DeviceImage, InternalDiskMayBeReadAndTheBootDiskNot) {
  EXPECT_EQ(device({"image", "disk1", kImage}).status, 0);
  for (const auto& [disk, message] : {
           std::pair<std::string, std::string>{"disk0", "disk0 backs the running system. Refused."},
           {"disk1s1", "disk1s1 is a partition; choose the whole disk."},
           {"disk42", "Unknown device: disk42"},
       }) {
    const Outcome outcome = device({"image", disk, "/Users/ann/other.img"});
    EXPECT_EQ(outcome.err, "molvanectl: " + message + " (com.molvane.helper.policy, 10)\n");
    EXPECT_FALSE(fs::exists("/Users/ann/other.img"));
  }
}

TEST_F(DeviceImage, GoesOnlyWhereNothingIsYet) {
  const std::string text = " (use a .dmg/.img/.raw under /Users, /Volumes or /tmp).";
  annsFile("taken.img", "kept");
  fs::create_symlink("/etc/planted.img", "/Users/ann/link.img");
  fs::create_directory_symlink("/etc", "/Users/ann/way");
  for (const auto& [path, message] : {
           std::pair<std::string, std::string>{"/Users/ann/taken.img",
                                               "Destination already exists: /Users/ann/taken.img"},
           {"/Users/ann/disk.iso", "Destination not allowed: /Users/ann/disk.iso" + text},
           {"/etc/disk.img", "Destination not allowed: /etc/disk.img" + text},
           {"/Users/ann/../../etc/disk.img", "Destination not allowed: /Users/ann/../../etc/disk.img" + text},
           {"/Users/ann/none/disk.img", "Destination not allowed: /Users/ann/none/disk.img" + text},
       }) {
    const Outcome outcome = device({"image", "disk1", path});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "molvanectl: " + message + " (com.molvane.helper.policy, 10)\n");
  }
  EXPECT_EQ(readFile("/Users/ann/taken.img"), "kept");

  EXPECT_EQ(device({"image", "disk1", "/Users/ann/link.img"}).status, 1) << "a link is something";
  EXPECT_EQ(device({"image", "disk1", "/Users/ann/way/planted.img"}).status, 1)
      << "no way out of the home folder";
  EXPECT_FALSE(fs::exists("/etc/planted.img"));

  const Outcome others = device({"image", "disk1", "/Users/bob/disk.img"});
  EXPECT_THAT(others.err, HasSubstr("Cannot create /Users/bob/disk.img: Permission denied\n"));
  EXPECT_FALSE(fs::exists("/Users/bob/disk.img"));
}

TEST_F(DeviceImage, FullVolumeIsAFailure) {
  const AttachedDisk disk("disk7", 8 * kMiB);
  fs::create_directories("/Volumes/Small");
  ASSERT_EQ(::mount("small", "/Volumes/Small", "tmpfs", 0, "size=5m"), 0);
  const Outcome outcome = device({"image", "disk7", "/Volumes/Small/disk.img"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("molvanectl: Write failed: No space left on device\n"));
  EXPECT_TRUE(fs::exists("/Volumes/Small/disk.img")) << "what was read is kept";
  EXPECT_EQ(::umount("/Volumes/Small"), 0);
}

// Ranges of unreadable sectors, as the faulty disk takes them.
std::string ranges(const std::set<std::size_t>& sectors) {
  std::string text = "bad";
  for (auto next = sectors.begin(); next != sectors.end();) {
    const std::size_t first = *next;
    std::size_t last = first;
    while (++next != sectors.end() && *next == last + 1) ++last;
    text += " " + std::to_string(first) + "-" + std::to_string(last);
  }
  return text;
}

TEST_F(FaultyImage, UnreadableBlocksAreZerosAndEverythingElseIsThere) {
  constexpr std::size_t kSize = 12 * kMiB + 5 * kSector;
  constexpr std::size_t kChunk = 4 * kMiB / kSector;
  constexpr std::size_t kLast = kSize / kSector - 1;
  const std::string content = noise(kSize);
  std::set<std::size_t> spread;
  for (std::size_t i = 0; i < 64; ++i) spread.insert(i * 379 + i % 7);
  std::set<std::size_t> many;
  for (std::size_t i = 0; i < 3000; ++i) many.insert(kChunk - 1000 + i + i / 9);
  for (const std::size_t blockSize : {kSector, 8 * kSector}) {
    const std::size_t size = kSize / blockSize * blockSize;
    const AttachedDisk disk("disk7", size, {"--faulty", "--block-size", std::to_string(blockSize)});
    disk.setContent(content.substr(0, size));
    for (const auto& bad :
         {std::set<std::size_t>{0}, {kLast - 8}, {kChunk - 1, kChunk}, {17}, spread, many}) {
      disk.tell(ranges(bad));
      std::string expected = content.substr(0, size);
      std::set<std::size_t> blocks;
      for (const std::size_t sector : bad) blocks.insert(sector * kSector / blockSize);
      for (const std::size_t block : blocks) expected.replace(block * blockSize, blockSize, blockSize, '\0');

      fs::remove(kImage);
      const nlohmann::json status = endOf(startJob({"image", "disk7", kImage}));
      EXPECT_EQ(status["phase"], "finished") << status;
      EXPECT_EQ(status["badBlocks"], blocks.size()) << ranges(bad) << " on blocks of " << blockSize;
      EXPECT_TRUE(readFile(kImage) == expected) << ranges(bad) << " on blocks of " << blockSize;
      EXPECT_THAT(std::string(status["log"]), HasSubstr(lastLines(expected, blocks.size())));
    }
  }
}

TEST_F(FaultyImage, DiskWithNothingReadableIsAllZeros) {
  const AttachedDisk disk("disk7", 5 * kMiB, {"--faulty"});
  disk.tell("gone");
  const nlohmann::json status = endOf(startJob({"image", "disk7", kImage}));
  EXPECT_EQ(status["phase"], "finished") << status;
  EXPECT_EQ(status["badBlocks"], 5 * kMiB / kSector);
  EXPECT_TRUE(readFile(kImage) == std::string(5 * kMiB, '\0'));
}

TEST_F(FaultyImage, PulledOutInTheMiddleIsAFailureAndKeepsWhatIsGood) {
  AttachedDisk disk("disk7", 16 * kMiB, {"--faulty"});
  const std::string content = noise(16 * kMiB);
  disk.setContent(content);
  disk.tell("hold-reads 16384");
  const std::string job = startJob({"image", "disk7", kImage});
  ASSERT_TRUE(eventually([&] { return statusOf(job)["bytesDone"] == 8 * kMiB; })) << statusOf(job);
  disk.pull();
  const nlohmann::json status = endOf(job);
  EXPECT_EQ(status["phase"], "failed") << status;
  EXPECT_EQ(status.value("error", ""), "Read failed: No such device");
  EXPECT_THAT(std::string(status["log"]), HasSubstr("its first 8388608 bytes are good"));
  EXPECT_TRUE(readFile(kImage) == content.substr(0, 8 * kMiB));
}

TEST_F(FaultyImage, CancelRemovesTheFileAndFreesTheName) {
  const AttachedDisk disk("disk7", 16 * kMiB, {"--faulty"});
  disk.tell("hold-reads 16384");
  const std::string job = startJob({"image", "disk7", kImage});
  ASSERT_TRUE(eventually([&] { return statusOf(job)["bytesDone"] >= 4 * kMiB; })) << statusOf(job);
  EXPECT_TRUE(fs::exists(kImage));
  EXPECT_EQ(device({"cancel", job}).status, 0);
  disk.tell("");
  const nlohmann::json status = endOf(job);
  EXPECT_EQ(status["phase"], "cancelled");
  EXPECT_EQ(status["log"], "Reading /dev/rdisk7 → " + std::string(kImage) + "\n");
  EXPECT_FALSE(fs::exists(kImage));
  EXPECT_EQ(device({"image", "disk7", kImage}).status, 0);
}

}  // namespace
}  // namespace molvane::e2e
