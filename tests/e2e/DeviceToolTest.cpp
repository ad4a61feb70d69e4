#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <sstream>

#include "Devices.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr std::size_t kMiB = std::size_t{1} << 20;
const std::string kInstaller = "/Applications/Install macOS Sonoma.app";
const std::string kVolume = "/Volumes/Media";
const std::string kCommand = "$ createinstallmedia --volume /Volumes/Media --nointeraction\n";
const fs::path kDestination = "/Library/Preferences/com.apple.TimeMachine.destination";

struct DeviceTool : testing::Test {
  void SetUp() override {
    if (!hasDisks()) GTEST_SKIP() << "this machine lends no loop devices";
    disk.emplace("disk7", 32 * kMiB, std::vector<std::string>{"--volume", kVolume});
  }
  void TearDown() override {
    if (disk) run({"/usr/sbin/diskutil", "unmountDisk", "disk7"});
  }

  static Outcome make() { return device({"install-media", "--yes", kInstaller, kVolume}); }
  static std::string start() { return startJob({"install-media", "--yes", kInstaller, kVolume}); }

  std::optional<AttachedDisk> disk;
};

std::string log(const nlohmann::json& status) { return status["log"]; }

TEST_F(DeviceTool, InstallMediaIsMadeAndItsToolHeard) {
  writeFile(kVolume + "/old", "old");
  LogFollower tools(kToolLog);
  const Outcome outcome = make();
  EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
  EXPECT_THAT(outcome.out, StartsWith(kCommand + "Erasing disk: 0%... 100%\nCopying essential files...\n"));
  EXPECT_THAT(outcome.out, HasSubstr("Install media now available at \"/Volumes/Media\"\nDone.\n"));
  EXPECT_THAT(tools.waitFor("createinstallmedia"), StartsWith("uid=0 "));
  EXPECT_FALSE(fs::exists(kVolume + "/old"));
  EXPECT_EQ(fs::file_size(kVolume + "/Install macOS Sonoma.app/Contents/SharedSupport/SharedSupport.dmg"),
            8 * kMiB);
}

TEST_F(DeviceTool, OutputIsTakenAsItComes) {
  {
    const ToolBehaviour fails("createinstallmedia", "print out of luck\nexit 7\n");
    const Outcome outcome = make();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, kCommand + "out of luck\n");
    EXPECT_THAT(outcome.err, HasSubstr("molvanectl: createinstallmedia exited 7\n"));
  }
  {
    const ToolBehaviour spoils("createinstallmedia", "invalid-utf8\nexit 0\n");
    const nlohmann::json status = endOf(start());
    EXPECT_EQ(status["phase"], "finished");
    EXPECT_THAT(log(status), StartsWith(kCommand + "before \xEF\xBF\xBD"));
    EXPECT_THAT(log(status), EndsWith(" after\nDone.\n"));
  }
  {
    const ToolBehaviour dies("createinstallmedia", "signal KILL\n");
    EXPECT_THAT(make().err, HasSubstr("molvanectl: createinstallmedia exited 9\n"));
  }
}

TEST_F(DeviceTool, FloodNeitherStopsTheToolNorFillsTheMemory) {
  const ToolBehaviour floods("createinstallmedia", "flood 64\nprint THE END\nexit 0\n");
  const std::string job = start();
  const nlohmann::json status = endOf(job);
  EXPECT_EQ(status["phase"], "finished");
  EXPECT_LT(log(status).size(), kMiB / 2);
  EXPECT_THAT(log(status), StartsWith(kCommand + "The quick brown fox"));
  EXPECT_THAT(log(status), EndsWith("Done.\n"));
}

TEST_F(DeviceTool, CancelEndsTheTool) {
  const ToolBehaviour hangs("createinstallmedia", "print waiting\nhang\n");
  const std::string job = start();
  ASSERT_TRUE(eventually([&] { return log(statusOf(job)) == kCommand + "waiting\n"; }))
      << "output comes as it is written";
  EXPECT_EQ(device({"cancel", job}).status, 0);
  const nlohmann::json status = endOf(job);
  EXPECT_EQ(status["phase"], "cancelled");
  EXPECT_FALSE(status.contains("error"));
  EXPECT_EQ(log(status), kCommand + "waiting\n");
}

// Ends every process that the helper has started.
void killTools() {
  const std::string tasks = "/proc/" + std::to_string(helperProcess().value()) + "/task";
  for (const auto& task : fs::directory_iterator(tasks)) {
    std::istringstream children(readFile(task.path() / "children"));
    for (pid_t child = 0; children >> child;) ::kill(child, SIGKILL);
  }
}

TEST_F(DeviceTool, JobOfAToolThatIsDeafToTheRequestEndsWithTheTool) {
  const ToolBehaviour deaf("createinstallmedia", "ignore-term\nprint waiting\nhang\n");
  const std::string job = start();
  ASSERT_TRUE(eventually([&] { return log(statusOf(job)) == kCommand + "waiting\n"; }));
  EXPECT_EQ(device({"cancel", job}).status, 0);
  EXPECT_EQ(statusOf(job)["phase"], "running") << "a volume that is still written to is not said to be free";
  killTools();
  EXPECT_EQ(endOf(job)["phase"], "cancelled");
}

TEST_F(DeviceTool, OnlyInstallersOfTheVendorRun) {
  const auto copyOf = [](const std::string& app) {
    fs::copy(kInstaller, app, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    return app + "/Contents/Resources/createinstallmedia";
  };
  const std::string ventura = "/Applications/Install macOS Ventura.app";
  const std::string tool = copyOf(ventura);
  const auto refused = [](const std::string& app, const std::string& path) {
    const Outcome outcome = device({"install-media", "--yes", app, kVolume});
    EXPECT_EQ(outcome.status, 1) << app;
    EXPECT_EQ(outcome.err, "molvanectl: Not an Apple-signed macOS installer: " + path +
                               " (com.molvane.helper.policy, 10)\n");
  };
  writeFile(tool, readFile(tool) + "# changed\n");
  refused(ventura, tool);
  const std::string sign = std::string(std::getenv("MACROOT")) + "/signing/sign";
  ASSERT_EQ(run({sign, tool, "com.apple.createinstallmedia", "developer-id"}).status, 0);
  refused(ventura, tool);
  fs::remove(tool + ".codesig");
  refused(ventura, tool);
  fs::permissions(tool, fs::perms(0644));
  refused(ventura, ventura);
  fs::remove_all(ventura);

  copyOf("/Users/ann/Install macOS Sonoma.app");
  refused("/Users/ann/Install macOS Sonoma.app", "/Users/ann/Install macOS Sonoma.app");
  copyOf("/Applications/Sonoma.app");
  refused("/Applications/Sonoma.app", "/Applications/Sonoma.app");
  fs::remove_all("/Users/ann/Install macOS Sonoma.app");
  fs::remove_all("/Applications/Sonoma.app");
}

TEST_F(DeviceTool, OnlyMountedVolumesOfExternalDisksAreTargets) {
  fs::create_directories(kVolume + "/sub");
  fs::create_directories("/Volumes/Folder");
  const AttachedDisk image("disk8", 8 * kMiB, {"--virtual", "--volume", "/Volumes/Image"});
  const AttachedDisk inside("disk9", 8 * kMiB, {"--sata", "--volume", "/Volumes/Inside"});
  const std::string text = "Target must be a mounted volume on an external disk: ";
  for (const auto& [volume, message] : {
           std::pair<std::string, std::string>{kVolume + "/sub", text + kVolume + "/sub"},
           {"/Volumes/Folder", text + "/Volumes/Folder"},
           {"/Volumes/none", text + "/Volumes/none"},
           {"/System/Volumes/Data", text + "/System/Volumes/Data"},
           {"/Users/ann", text + "/Users/ann"},
           {"/Volumes/Image", "disk8 is an attached disk image, not a drive. Refused."},
           {"/Volumes/Inside", "disk9 is an internal disk. Refused."},
       }) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"install-media", "--yes", kInstaller, volume},
          {"backup-destination", volume}}) {
      const Outcome outcome = device(arguments);
      EXPECT_EQ(outcome.status, 1) << volume;
      EXPECT_EQ(outcome.err, "molvanectl: " + message + " (com.molvane.helper.policy, 10)\n");
    }
  }
  run({"/usr/bin/umount", "/Volumes/Image", "/Volumes/Inside"});
}

TEST_F(DeviceTool, BackupDestinationIsSet) {
  const Outcome outcome = device({"backup-destination", kVolume});
  EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
  EXPECT_THAT(outcome.out, StartsWith("$ tmutil setdestination /Volumes/Media\nDone.\n"));
  EXPECT_EQ(readFile(kDestination), kVolume + "\n");

  const ToolBehaviour refuses("tmutil", "print  The backup disk is not supported. \nexit 45\n");
  const nlohmann::json status = endOf(startJob({"backup-destination", kVolume}));
  EXPECT_EQ(status["phase"], "failed");
  EXPECT_EQ(status["error"], "tmutil exited 45: The backup disk is not supported.");
  EXPECT_THAT(log(status), StartsWith("$ tmutil setdestination /Volumes/Media\nThe backup disk"));
}

}  // namespace
}  // namespace molvane::e2e
