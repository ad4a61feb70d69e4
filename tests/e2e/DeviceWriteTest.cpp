#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "Devices.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;

constexpr std::size_t kMiB = std::size_t{1} << 20;
constexpr const char* kPartial = "Cancelled — the device is now partially written.\n";
const std::string kUnmountFirst =
    "molvanectl: Cannot open device for writing: Device or resource busy. Unmount it first.\n";

struct DeviceWrite : testing::Test {
  void SetUp() override {
    if (!hasDisks()) GTEST_SKIP() << "this machine lends no loop devices";
  }
};

struct FaultyWrite : DeviceWrite {
  void SetUp() override {
    DeviceWrite::SetUp();
    if (!canFail()) GTEST_SKIP() << "this machine has no nbdkit, nbdfuse or /dev/fuse";
  }

  const std::string content = noise(24 * kMiB);
};

std::string transcript(const std::string& image, const std::string& disk, const std::string& content) {
  return "Writing " + image + " → /dev/r" + disk + "\nVerifying…\nVerified.\nDone. SHA-256 " +
         sha256(content) + "\n";
}

TEST_F(DeviceWrite, CopiesByteForByteAndPadsTheLastBlockOnly) {
  for (const std::size_t blockSize : {512, 4096}) {
    const AttachedDisk disk("disk7", 16 * kMiB, {"--block-size", std::to_string(blockSize)});
    for (const std::size_t size : {9 * kMiB + 100, 4 * kMiB, std::size_t{1}, std::size_t{0}, 16 * kMiB}) {
      const std::string old(16 * kMiB, '\xAA');
      disk.setContent(old);
      const std::string content = noise(size);
      const std::string image = annsFile("system.img", content);
      const Outcome outcome = device({"write", "--yes", "--as-is", image, "/dev/rdisk7"});
      ASSERT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
      EXPECT_THAT(outcome.out, EndsWith("\nSHA-256 " + sha256(content) + "\n"));
      const std::size_t padded = (size + blockSize - 1) / blockSize * blockSize;
      EXPECT_TRUE(disk.content() == content + std::string(padded - size, '\0') + old.substr(padded))
          << size << " bytes on blocks of " << blockSize;
    }
  }
}

TEST_F(DeviceWrite, TellsTheWholeStory) {
  const AttachedDisk disk("disk7", 16 * kMiB);
  const std::string content = noise(9 * kMiB + 100);
  const std::string image = annsFile("system.iso", content);
  const nlohmann::json verified = endOf(startJob({"write", "--yes", image, "disk7"}));
  EXPECT_EQ(verified["log"], transcript(image, "disk7", content));
  EXPECT_EQ(verified["phase"], "finished");
  EXPECT_EQ(verified["sha256"], sha256(content));
  EXPECT_EQ(verified["bytesDone"], content.size());
  EXPECT_EQ(verified["bytesTotal"], content.size());
  EXPECT_EQ(verified["badBlocks"], 0);
  EXPECT_FALSE(verified.contains("error"));

  const nlohmann::json unverified = endOf(startJob({"write", "--yes", "--no-verify", image, "disk7"}));
  EXPECT_EQ(unverified["log"],
            "Writing " + image + " → /dev/rdisk7\nDone. SHA-256 " + sha256(content) + "\n");
}

TEST_F(DeviceWrite, RefusesEveryOtherTarget) {
  const std::string image = annsFile("small.img", noise(1000));
  for (const auto& [disk, message] : {
           std::pair<std::string, std::string>{"disk4s1", "disk4s1 is a partition; choose the whole disk."},
           {"disk0", "disk0 backs the running system. Refused."},
           {"disk0s1", "disk0s1 is a partition; choose the whole disk."},
           {"disk1", "disk1 is an internal disk. Refused."},
           {"disk5", "disk5 is an attached disk image, not a drive. Refused."},
           {"disk42", "Unknown device: disk42"},
           {"../disk4", "Unknown device: ../disk4"},
           {"loop0", "Unknown device: loop0"},
       }) {
    const Outcome outcome = device({"write", "--yes", "--", image, disk});
    EXPECT_EQ(outcome.status, 1) << disk;
    EXPECT_EQ(outcome.err, "molvanectl: " + message + " (com.molvane.helper.policy, 10)\n");
    EXPECT_EQ(outcome.out, "");
  }
}

TEST_F(DeviceWrite, RefusesImagesThatThePersonMayNotUse) {
  const AttachedDisk disk("disk7", kMiB);
  const std::string old = disk.content();
  // What it is compressed with is not told to Ann, though the client's group may read it.
  const std::string bobs = annsFile("bobs.img", "\x1F\x8Bsecret");
  struct stat client {};
  ASSERT_EQ(::stat(kClient, &client), 0);
  ASSERT_EQ(::chown(bobs.c_str(), kBob.uid, client.st_gid), 0);
  fs::permissions(bobs, fs::perms(0640));
  // Anybody may read the file, and only Bob gets as far as its folder.
  const fs::path closed = "/Users/bob/private";
  fs::create_directories(closed);
  ASSERT_EQ(::chown(closed.c_str(), kBob.uid, kBob.gid), 0);
  fs::permissions(closed, fs::perms(0700));
  const std::string hidden = closed / "hidden.img";
  writeFile(hidden, "secret");
  fs::permissions(hidden, fs::perms(0644));
  const std::string large = annsFile("large.img", std::string(kMiB + 1, 'x'));
  const std::string text = annsFile("notes.txt", "x");
  fs::create_directories("/Users/ann/folder.img");
  const std::string kind = " (.img/.iso/.raw/.dmg/.cdr)";
  for (const auto& [image, message] : {
           std::pair<std::string, std::string>{bobs, "Image is not readable by your user: " + bobs},
           {hidden, "Image is not readable by your user: " + hidden},
           {large, "Image (1048577 bytes) is larger than the device (1048576 bytes)."},
           {text, "Image not allowed: " + text + kind},
           {"/Users/ann/folder.img", "Image not allowed: /Users/ann/folder.img" + kind},
           {"/dev/rdisk4", "Image not allowed: /dev/rdisk4" + kind},
       }) {
    const Outcome outcome = device({"write", "--yes", image, "disk7"});
    EXPECT_EQ(outcome.status, 1) << image;
    EXPECT_EQ(outcome.err, "molvanectl: " + message + " (com.molvane.helper.policy, 10)\n");
  }
  EXPECT_EQ(device({"write", "--yes", "/Users/ann/none.img", "disk7"}).err,
            "molvanectl: There is no file /Users/ann/none.img.\n");
  // A link to what is somebody else's is no way around.
  const fs::path link = "/Users/ann/link.img";
  fs::remove(link);
  fs::create_symlink(bobs, link);
  EXPECT_EQ(device({"write", "--yes", link, "disk7"}).status, 1);
  EXPECT_TRUE(disk.content() == old);

  constexpr gid_t kAdmin = 80;  // one more group of Ann's
  ASSERT_EQ(::chown(closed.c_str(), kBob.uid, kAdmin), 0);
  fs::permissions(closed, fs::perms(0710));
  EXPECT_EQ(device({"write", "--yes", hidden, "disk7"}).status, 0);
}

TEST_F(DeviceWrite, DiskThatIsMountedByAnyWayIsLeftAlone) {
  const AttachedDisk disk("disk7", 16 * kMiB, {"--volume", "/Volumes/Stick"});
  writeFile("/Volumes/Stick/kept", "kept");
  ::sync();
  const std::string old = disk.content();
  const std::string image = annsFile("small.img", noise(9000));
  const Outcome refused = device({"write", "--yes", image, "disk7"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, EndsWith(kUnmountFirst)) << "and not that anything was written";
  EXPECT_TRUE(disk.content() == old);

  EXPECT_EQ(run({"/usr/sbin/diskutil", "unmountDisk", "disk7"}).status, 0);

  // The same volume through a loop device, which does not hold the disk.
  {
    const AttachedDisk loop("disk8", 15 * kMiB, {"--virtual", "--over", "/dev/disk7s1"});
    const auto refusalMountedAt = [&](const char* folder) {
      fs::create_directories(folder);
      EXPECT_EQ(::mount("/dev/disk8", folder, "ext4", 0, nullptr), 0);
      const Outcome outcome = device({"write", "--yes", image, "disk7"});
      EXPECT_EQ(readFile(fs::path(folder) / "kept"), "kept");
      EXPECT_TRUE(disk.content().substr(0, kMiB) == old.substr(0, kMiB)) << "what precedes the partition";
      EXPECT_EQ(::umount(folder), 0);
      return outcome.err;
    };
    EXPECT_THAT(refusalMountedAt("/Volumes/Loop"), EndsWith(kUnmountFirst));
    EXPECT_EQ(refusalMountedAt("/opt"),
              "molvanectl: disk7 backs the running system. Refused. (com.molvane.helper.policy, 10)\n");
  }
  EXPECT_EQ(device({"write", "--yes", image, "disk7"}).status, 0);
}

TEST_F(DeviceWrite, WriteProtectedDiskIsAFailure) {
  const AttachedDisk disk("disk7", kMiB, {"--read-only"});
  const Outcome outcome = device({"write", "--yes", annsFile("small.img", "x"), "disk7"});
  EXPECT_EQ(outcome.status, 1);
  // Linux lets it be opened and refuses the write.
  EXPECT_THAT(outcome.err, HasSubstr("molvanectl: Device write failed: Operation not permitted\n"));
  EXPECT_TRUE(disk.content() == std::string(kMiB, '\0'));
}

TEST_F(FaultyWrite, SaysWhatTheDiskDid) {
  const AttachedDisk disk("disk7", 32 * kMiB, {"--faulty"});
  const std::string image = annsFile("system.img", content);
  for (const auto& [fault, message] : {
           std::pair<std::string, std::string>{"fail-writes 20000",
                                               "Device write failed: Input/output error"},
           {"full 20000", "Device write failed: No space left on device"},
           {"lie 30000", "Verification failed: device content differs from the image."},
           {"lie 0", "Verification failed: device content differs from the image."},
           {"lie 49151", "Verification failed: device content differs from the image."},
           {"bad 40000", "Verify read failed: Input/output error"},
           {"gone", "Device write failed: Input/output error"},
       }) {
    disk.tell(fault);
    const nlohmann::json status = endOf(startJob({"write", "--yes", image, "disk7"}));
    EXPECT_EQ(status["phase"], "failed") << fault;
    EXPECT_EQ(status.value("error", ""), message) << fault;
    EXPECT_THAT(std::string(status["log"]), EndsWith(message + "\n")) << fault;
    EXPECT_FALSE(status.contains("sha256"));
  }
  // Nobody asked for the truth.
  disk.tell("lie 30000");
  EXPECT_EQ(device({"write", "--yes", "--no-verify", image, "disk7"}).status, 0);
  disk.tell("");
  EXPECT_EQ(device({"write", "--yes", image, "disk7"}).status, 0);
  EXPECT_TRUE(disk.content().substr(0, content.size()) == content);
}

TEST_F(FaultyWrite, PulledOutInTheMiddle) {
  AttachedDisk disk("disk7", 32 * kMiB, {"--faulty"});
  disk.tell("hold-writes 24576");
  const std::string job = startJob({"write", "--yes", annsFile("system.img", content), "disk7"});
  ASSERT_TRUE(eventually([&] { return statusOf(job)["bytesDone"] >= 8 * kMiB; }));
  disk.pull();
  const nlohmann::json status = endOf(job);
  EXPECT_EQ(status["phase"], "failed");
  EXPECT_THAT(status.value("error", ""), testing::StartsWith("Device write failed: "));
  const Outcome again = device({"write", "--yes", "/Users/ann/system.img", "disk7"});
  EXPECT_EQ(again.err, "molvanectl: Unknown device: disk7 (com.molvane.helper.policy, 10)\n");
}

TEST_F(FaultyWrite, CancelledInEitherPass) {
  const AttachedDisk disk("disk7", 32 * kMiB, {"--faulty"});
  const std::string image = annsFile("system.img", content);
  for (const auto& [hold, phase] : {std::pair<std::string, std::string>{"hold-writes 24576", "running"},
                                    {"hold-reads 24576", "verifying"}}) {
    disk.tell(hold);
    const std::string job = startJob({"write", "--yes", image, "disk7"});
    ASSERT_TRUE(eventually([&, wanted = phase] {
      const nlohmann::json status = statusOf(job);
      return status["phase"] == wanted && status["bytesDone"] >= 4 * kMiB;
    })) << statusOf(job);
    EXPECT_EQ(device({"cancel", job}).status, 0);
    disk.tell("");
    const nlohmann::json status = endOf(job);
    EXPECT_EQ(status["phase"], "cancelled");
    EXPECT_THAT(std::string(status["log"]), EndsWith(kPartial));
    EXPECT_FALSE(status.contains("error"));
    EXPECT_EQ(device({"cancel", job}).status, 1) << "it has ended";
  }
}

TEST_F(FaultyWrite, InterruptCancelsAndTheClientWaits) {
  const AttachedDisk disk("disk7", 32 * kMiB, {"--faulty"});
  disk.tell("hold-writes 24576");
  const std::string image = annsFile("system.img", content);
  const std::string events = annsFile("events", "");
  const auto said = [&](const std::string& what) {
    return eventually([&] { return readFile(events).find(what) != std::string::npos; });
  };
  Program client({"/bin/sh", "-c", "exec \"$@\" >>/Users/ann/events", "sh", kClient, "--json", "device",
                  "write", "--yes", image, "disk7"},
                 kAnn);
  ASSERT_TRUE(said(R"("phase":"running")"));
  client.kill(SIGINT);
  ASSERT_TRUE(said(R"("event":"cancelling")"));
  disk.tell("");
  const Outcome outcome = client.wait();
  EXPECT_EQ(outcome.status, 1) << testing::PrintToString(outcome);
  EXPECT_THAT(outcome.err, HasSubstr("The job was cancelled."));
  EXPECT_THAT(readFile(events), HasSubstr(R"("event":"ended")"));
  EXPECT_THAT(readFile(events), HasSubstr(R"("phase":"cancelled")"));
}

TEST_F(FaultyWrite, ImageThatChangesMeanwhileIsNeverPassedOffAsWhole) {
  const AttachedDisk disk("disk7", 32 * kMiB, {"--faulty"});
  bool verify = true;
  const auto withChange = [&](const std::function<void(const std::string&)>& change) {
    const std::string image = annsFile("system.img", content);
    disk.tell("hold-writes 0");
    std::vector<std::string> command = {"write", "--yes", image, "disk7"};
    if (!verify) command.emplace_back("--no-verify");
    const std::string job = startJob(command);
    EXPECT_TRUE(eventually([&] { return statusOf(job)["phase"] == "running"; }));
    change(image);
    disk.tell("");
    return endOf(job);
  };

  const auto truncate = [](const std::string& image) { fs::resize_file(image, kMiB); };
  const nlohmann::json truncated = withChange(truncate);
  EXPECT_EQ(truncated["phase"], "failed") << truncated;
  verify = false;
  const nlohmann::json unverified = withChange(truncate);
  EXPECT_LT(unverified["bytesDone"], content.size()) << unverified;
  EXPECT_EQ(device({"watch", unverified["job"]}).status, 1) << "there is less on the disk than was asked for";
  verify = true;

  const nlohmann::json grown =
      withChange([](const std::string& image) { fs::resize_file(image, 32 * kMiB); });
  EXPECT_EQ(grown["phase"], "finished") << grown;
  EXPECT_EQ(grown.value("sha256", ""), sha256(content)) << "what was not there at the start is not written";

  const nlohmann::json removed = withChange([](const std::string& image) { fs::remove(image); });
  EXPECT_EQ(removed["phase"], "finished") << removed;
  EXPECT_TRUE(disk.content().substr(0, content.size()) == content);
}

}  // namespace
}  // namespace molvane::e2e
