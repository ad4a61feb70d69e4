#include "HelperKit/Devices/DevicePolicy.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;
using Case = DevicePolicyErrorCase;

class TableOfDisks final : public DeviceFactsProviding {
 public:
  [[nodiscard]] std::optional<DeviceFacts> facts(const std::string& bsdName) const override {
    const auto found = disks.find(bsdName);
    if (found == disks.end()) return std::nullopt;
    return found->second;
  }
  [[nodiscard]] std::set<std::string> wholeDisks(const std::string& bsdName) const override {
    const auto found = below.find(bsdName);
    return found == below.end() ? std::set<std::string>() : found->second;
  }
  [[nodiscard]] std::set<std::string> bootWholeDisks() const override { return {}; }
  [[nodiscard]] std::set<std::string> systemWholeDisks() const override { return {}; }

  std::map<std::string, DeviceFacts> disks;
  std::map<std::string, std::set<std::string>> below;
};

// The real file system, with a folder in place of the root for what lies below a Mac's folders.
class FilesOfAMac final : public DeviceFileAccess {
 public:
  explicit FilesOfAMac(std::string root) : root_(std::move(root)), real_(makeDeviceFileAccess()) {}

  [[nodiscard]] bool itemExists(const std::string& path) const override {
    return real_->itemExists(placed(path));
  }
  [[nodiscard]] bool isDirectory(const std::string& path) const override {
    return real_->isDirectory(placed(path));
  }
  [[nodiscard]] bool isExecutableFile(const std::string& path) const override {
    return real_->isExecutableFile(placed(path));
  }
  [[nodiscard]] std::optional<FileAttributes> targetAttributes(const std::string& path) const override {
    return real_->targetAttributes(placed(path));
  }
  [[nodiscard]] bool isReadable(const std::string& path, std::uint32_t uid) const override {
    return real_->isReadable(placed(path), uid);
  }
  [[nodiscard]] std::optional<MountedVolume> mountedVolume(const std::string& path) const override {
    const auto found = volumes.find(path);
    if (found == volumes.end()) return std::nullopt;
    return found->second;
  }

  std::map<std::string, MountedVolume> volumes;

 private:
  [[nodiscard]] std::string placed(const std::string& path) const {
    for (const char* place : {"/Users", "/Volumes", "/Applications"}) {
      if (path.compare(0, std::string(place).size(), place) == 0) return root_ + path;
    }
    return path;
  }

  std::string root_;
  std::shared_ptr<const DeviceFileAccess> real_;
};

class SignedPaths final : public CodeSigning {
 public:
  PeerVerdict checkPeer(const FileDescriptor& /*socket*/, std::string_view /*requirement*/) override {
    return {{"not asked for"}, {}};
  }
  CodeVerdict checkFile(const std::string& path, std::string_view requirement) override {
    requirements.emplace_back(requirement);
    return {path == appleSigned ? "" : "not signed"};
  }

  std::string appleSigned;
  std::vector<std::string> requirements;
};

std::optional<DevicePolicyError> refusalOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const DevicePolicyError& error) {
    return error;
  }
  return std::nullopt;
}

class DevicePolicyTest : public ::testing::Test {
 protected:
  DevicePolicyTest() {
    const DeviceFacts usb = {"disk4", true, false, true, 1'000'000, 4096, false};
    disks_->disks["disk4"] = usb;
    add("disk4s1", [](DeviceFacts& it) { it.isWhole = false; });
    add("disk0", [](DeviceFacts& it) { it.isInternal = true; });
    add("disk1", [](DeviceFacts& it) { it.isInternal = true; });
    add("disk5", [](DeviceFacts& it) { it.isVirtual = true; });
    add("disk6", [](DeviceFacts& it) { it.isVirtual = it.isInternal = true; });
    add("disk7", [](DeviceFacts& /*it*/) {});
    add("disk8", [](DeviceFacts& /*it*/) {});
    policy_ = {disks_, {"disk0", "disk7"}, files_, signing_, {"disk8"}};
  }

  void add(const std::string& name, const std::function<void(DeviceFacts&)>& change) {
    DeviceFacts facts = disks_->disks["disk4"];
    facts.bsdName = name;
    change(facts);
    disks_->disks[name] = facts;
  }

  void expectRefusal(Case which, const std::string& text, const std::function<void()>& call) const {
    const auto refusal = refusalOf(call);
    ASSERT_TRUE(refusal) << "not refused: " << text;
    EXPECT_EQ(*refusal, DevicePolicyError(which, text)) << refusal->errorDescription();
  }
  void expectBadDestination(const std::string& path) const {
    expectRefusal(Case::badDestination, path, [&] { (void)policy_.validateImageDestination(path); });
  }
  void expectBadSource(const std::string& path) const {
    expectRefusal(Case::badSource, path, [&] { (void)policy_.validateImageSource(path, getuid(), 1000); });
  }
  void expectBadInstaller(const std::string& path) const {
    expectRefusal(Case::badInstaller, path, [&] { (void)policy_.validateInstaller(path); });
  }
  void expectVolumeRefusal(Case which, const std::string& text, const std::string& path) const {
    expectRefusal(which, text, [&] { (void)policy_.validateTargetVolume(path); });
  }

  [[nodiscard]] std::string at(const std::string& path) const { return scratch_.path() + "/" + path; }
  std::string file(const std::string& name, std::size_t size = 0, mode_t mode = 0644) const {
    std::ofstream(at(name)) << std::string(size, 'x');
    ::chmod(at(name).c_str(), mode);
    return at(name);
  }

  TemporaryFolder scratch_;
  std::shared_ptr<TableOfDisks> disks_ = std::make_shared<TableOfDisks>();
  std::shared_ptr<FilesOfAMac> files_ = std::make_shared<FilesOfAMac>(scratch_.path());
  std::shared_ptr<SignedPaths> signing_ = std::make_shared<SignedPaths>();
  DevicePolicy policy_;
};

TEST_F(DevicePolicyTest, onlyWholeDisksThatDoNotCarryTheSystemAreRead) {
  EXPECT_EQ(policy_.validateSourceDevice("disk4"), disks_->disks["disk4"]);
  EXPECT_EQ(policy_.validateSourceDevice("disk1"), disks_->disks["disk1"]) << "internal ones may be read";
  EXPECT_EQ(policy_.validateSourceDevice("disk5"), disks_->disks["disk5"]);
  const auto refuses = [&](Case which, const std::string& name) {
    expectRefusal(which, name, [&] { (void)policy_.validateSourceDevice(name); });
  };
  refuses(Case::unknownDevice, "disk9");
  refuses(Case::unknownDevice, "");
  refuses(Case::notWholeDisk, "disk4s1");
  refuses(Case::bootDisk, "disk0");
  refuses(Case::bootDisk, "disk7");
}

TEST_F(DevicePolicyTest, onlyExternalDrivesAreOverwritten) {
  EXPECT_EQ(policy_.validateTargetDevice("disk4"), disks_->disks["disk4"]);
  const auto refuses = [&](Case which, const std::string& name) {
    expectRefusal(which, name, [&] { (void)policy_.validateTargetDevice(name); });
  };
  refuses(Case::unknownDevice, "disk9");
  refuses(Case::notWholeDisk, "disk4s1");
  refuses(Case::bootDisk, "disk0");  // before: it is internal
  refuses(Case::bootDisk, "disk7");
  refuses(Case::bootDisk, "disk8");
  EXPECT_EQ(policy_.validateSourceDevice("disk8").bsdName, "disk8") << "what the system needs may be read";
  refuses(Case::internalDisk, "disk1");
  refuses(Case::diskImage, "disk5");
  refuses(Case::internalDisk, "disk6");  // virtual as well
}

TEST_F(DevicePolicyTest, imagesAreCreatedInThePlacesOfPeopleOnly) {
  fs::create_directories(at("Users/ann/out.raw"));
  fs::create_directories(at("Volumes/USB"));
  EXPECT_EQ(policy_.validateImageDestination("/Users/ann//./a.dmg"), "/Users/ann/a.dmg");
  EXPECT_EQ(policy_.validateImageDestination("/Users/ann/OUT.DMG"), "/Users/ann/OUT.DMG");
  EXPECT_EQ(policy_.validateImageDestination("/Volumes/USB/x/../b.raw"), "/Volumes/USB/b.raw");
  EXPECT_EQ(policy_.validateImageDestination("/Users/ann/out.raw/a.img"), "/Users/ann/out.raw/a.img");
  EXPECT_EQ(imageDestinationPlace("/Users/ann/a.dmg"), "/Users");
  EXPECT_EQ(imageDestinationPlace("/private/var/folders/a.dmg"), "/private/var/folders");
  expectRefusal(Case::badDestination, "/etc/a.dmg", [] { (void)imageDestinationPlace("/etc/a.dmg"); });

  for (const char* path :
       {"", "a.img", "Users/ann/a.img", "/a.img", "/etc/a.img", "/Usersx/a.img", "/users/ann/a.img",
        "/var/a.img", "~/a.img",  // root's home
        "/Users/ann/../../root/x.dmg", "/Users/ann/../../etc/x.dmg", "/Users/ann/a.iso", "/Users/ann/a",
        "/Users/ann/.img", "/Users/ann/a.img.", "/Users/ann/none/a.img", "/Users", "/Users/"}) {
    expectBadDestination(path);
  }
  expectBadDestination(std::string("/Users/ann/a.img\0.img", 21));
  std::ofstream(at("Users/ann/file")) << "";
  expectBadDestination("/Users/ann/file/a.img");
}

TEST_F(DevicePolicyTest, anImageIsNeverCreatedOverAnything) {
  fs::create_directories(at("Users/ann"));
  file("Users/ann/file.img");
  fs::create_directories(at("Users/ann/folder.img"));
  fs::create_symlink("/nowhere", at("Users/ann/link.img"));
  for (const char* name : {"file.img", "folder.img", "link.img"}) {
    const std::string path = std::string("/Users/ann/") + name;
    expectRefusal(Case::destinationExists, path,
                  [&] { (void)policy_.validateImageDestination("/Users/./ann//" + std::string(name)); });
  }
  const std::string inTemporary = file("there.raw");  // the shared temporary folder, through no double
  expectRefusal(Case::destinationExists, inTemporary,
                [&] { (void)policy_.validateImageDestination(inTemporary); });
  EXPECT_EQ(policy_.validateImageDestination(at("new.raw")), at("new.raw"));
}

TEST_F(DevicePolicyTest, anImageToWriteIsARegularFileOfAKnownKind) {
  for (const char* name : {"a.img", "a.iso", "a.raw", "a.dmg", "a.cdr", "A.ISO"}) {
    const std::string path = file(name, 700);
    EXPECT_EQ(policy_.validateImageSource(path, getuid(), 701), (DevicePolicy::ImageSource{path, 700}));
  }
  fs::create_symlink("a.iso", at("link.img"));
  fs::create_directory_symlink("/usr/bin", at("away"));
  EXPECT_EQ(policy_.validateImageSource(at("away//../link.img"), getuid(), 700),
            (DevicePolicy::ImageSource{at("link.img"), 700}));

  fs::create_directory(at("folder.img"));
  ASSERT_EQ(::mkfifo(at("pipe.img").c_str(), 0644), 0);
  fs::create_symlink("/dev/zero", at("device.img"));
  fs::create_symlink("none", at("dangling.img"));
  for (const std::string& path :
       {file("a.txt"), file("a"), file("a.img2"), at("none.img"), at("folder.img"), at("pipe.img"),
        at("device.img"), at("dangling.img"), std::string(), std::string("a.img"), at("a.img/") + "x.img",
        at("a.img") + std::string("\0.img", 5)}) {
    expectBadSource(path);
  }
}

TEST_F(DevicePolicyTest, anImageIsReadOnlyForThoseWhoCouldReadItThemselves) {
  const std::uint32_t mine = getuid(), somebody = mine + 1;
  const auto read = [&](const std::string& path, std::uint32_t uid) {
    return policy_.validateImageSource(path, uid, 1000);
  };
  EXPECT_EQ(read(file("closed.img", 10, 0600), mine).size, 10);
  const std::string open = file("open.img", 10, 0644);
  expectRefusal(Case::sourceNotReadable, open,
                [&] { (void)read(open, somebody); });  // in a folder of mode 0700
  fs::permissions(scratch_.path(), fs::perms(0711));
  if (geteuid() == 0) {
    EXPECT_EQ(read(open, somebody).size, 10);
  }
  for (const mode_t mode : {0600, 0640, 0660, 0650}) {
    const std::string path = file("other.img", 10, mode);
    expectRefusal(Case::sourceNotReadable, path, [&] { (void)read(path, somebody); });
  }
  fs::create_symlink("other.img", at("link.img"));
  expectRefusal(Case::sourceNotReadable, at("link.img"), [&] { (void)read(at("link.img"), somebody); });
}

TEST_F(DevicePolicyTest, anImageFitsOntoTheDevice) {
  const std::string path = file("a.img", 4096);
  EXPECT_EQ(policy_.validateImageSource(path, getuid(), 4096).size, 4096);
  const auto refusal = refusalOf([&] { (void)policy_.validateImageSource(path, getuid(), 4095); });
  ASSERT_TRUE(refusal);
  EXPECT_EQ(*refusal, DevicePolicyError(ImageSizes{4096, 4095}));
  EXPECT_EQ(refusal->errorDescription(), "Image (4096 bytes) is larger than the device (4095 bytes).");
  EXPECT_EQ(policy_.validateImageSource(file("empty.img"), getuid(), 0).size, 0);
}

TEST_F(DevicePolicyTest, onlyAnInstallerWhoseToolAppleSignedIsRun) {
  const std::string app = "/Applications/Install macOS Sonoma.app";
  const std::string tool = app + "/Contents/Resources/createinstallmedia";
  fs::create_directories(at(app + "/Contents/Resources"));
  expectBadInstaller(app);  // no tool
  file(tool.substr(1), 1, 0644);
  expectBadInstaller(app);  // a tool that cannot be run
  EXPECT_TRUE(signing_->requirements.empty());
  file(tool.substr(1), 1, 0755);
  expectRefusal(Case::badInstaller, tool, [&] { (void)policy_.validateInstaller(app + "/"); });
  signing_->appleSigned = tool;
  EXPECT_EQ(policy_.validateInstaller(app + "/"), tool);
  EXPECT_EQ(signing_->requirements, (std::vector<std::string>{"anchor apple", "anchor apple"}));
  EXPECT_NO_THROW(policy_.requireAppleSignature(tool));

  for (const char* path :
       {"", "/Applications", "/Applications/Safari.app", "/Applications/Install macOS Sonoma",
        "/Users/ann/Install macOS Sonoma.app", "/Applications/../Users/Install macOS Sonoma.app",
        "/Applications/install macOS Sonoma.app", "Applications/Install macOS Sonoma.app",
        "/Applications/Install macOS Sonoma.app/Contents"}) {
    expectBadInstaller(path);
  }
}

TEST_F(DevicePolicyTest, onlyAMountPointDirectlyBelowVolumesIsATarget) {
  disks_->below["disk4s1"] = {"disk4"};
  files_->volumes["/Volumes/USB"] = {"/Volumes/USB", "/dev/disk4s1"};
  files_->volumes["/Volumes/USB/sub"] = {"/Volumes/USB/sub", "/dev/disk4s1"};
  files_->volumes["/Volumes/Folder"] = {"/", "/dev/disk4s1"};
  files_->volumes["/Volumes/Share"] = {"/Volumes/Share", ""};
  files_->volumes["/mnt/USB"] = {"/mnt/USB", "/dev/disk4s1"};
  EXPECT_EQ(policy_.validateTargetVolume("/Volumes//USB/"), "/Volumes/USB");
  for (const char* path : {"", "/", "/Volumes", "/Volumes/", "/Volumes/USB/sub", "/Volumes/Folder",
                           "/Volumes/Share", "/Volumes/None", "/mnt/USB", "/VolumesUSB", "Volumes/USB"}) {
    expectVolumeRefusal(Case::badTargetVolume, path, path);
  }
}

TEST_F(DevicePolicyTest, everyDiskBelowATargetVolumeMustBeOneToGiveUp) {
  files_->volumes["/Volumes/USB"] = {"/Volumes/USB", "/dev/disk4s1"};
  const auto refuses = [&](Case which, const std::string& name, std::set<std::string> disks) {
    disks_->below["disk4s1"] = std::move(disks);
    expectVolumeRefusal(which, name, "/Volumes/USB");
  };
  refuses(Case::unknownDevice, "disk9", {"disk4", "disk9"});
  refuses(Case::notWholeDisk, "disk4s1", {"disk4", "disk4s1"});
  refuses(Case::bootDisk, "disk8", {"disk4", "disk8"});
  refuses(Case::bootDisk, "disk0", {"disk0", "disk4"});
  refuses(Case::bootDisk, "disk7", {"disk4", "disk7"});
  refuses(Case::internalDisk, "disk1", {"disk1", "disk4"});
  refuses(Case::diskImage, "disk5", {"disk4", "disk5"});
  refuses(Case::internalDisk, "disk6", {"disk4", "disk6"});
  refuses(Case::internalDisk, "disk1", {"disk1", "disk5"});  // the first that is refused
}

TEST(DevicePolicyOfTheHostTest, isMadeFromWhatIsTrueNow) {
  const DevicePolicy policy = makeDevicePolicy();
  EXPECT_EQ(policy.bootDisks, makeDeviceFacts()->bootWholeDisks());
  for (const std::string& disk : policy.bootDisks) {
    const auto refusal = refusalOf([&] { (void)policy.validateSourceDevice(disk); });
    ASSERT_TRUE(refusal) << disk;
    EXPECT_EQ(*refusal, DevicePolicyError(Case::bootDisk, disk));
  }
  for (const char* name : {"", ".", "..", "../block", "/dev/sda", "no-such-disk"}) {
    const auto refusal = refusalOf([&] { (void)policy.validateTargetDevice(name); });
    ASSERT_TRUE(refusal) << name;
    EXPECT_EQ(*refusal, DevicePolicyError(Case::unknownDevice, name));
  }
  const auto unsignedTool = refusalOf([&] { policy.requireAppleSignature("/bin/sh"); });
  ASSERT_TRUE(unsignedTool);
  EXPECT_EQ(unsignedTool->which(), Case::badInstaller);
}

}  // namespace
}  // namespace molvane
