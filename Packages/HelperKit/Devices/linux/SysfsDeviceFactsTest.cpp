#include "HelperKit/Devices/linux/SysfsDeviceFacts.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/FileDescriptor.hpp"
#include "Platform/Mounts.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

const std::string kPort = "pci0000:00/0000:00:1c.0";
const std::string kSata = "pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0/block/";
const std::string kUsb = "pci0000:00/0000:00:14.0/usb2/2-1/2-1:1.0/host6/target6:0:0/6:0:0:0/block/";

// A machine's sysfs and mount table in a folder.
class Machine {
 public:
  void write(const std::string& path, const std::string& text) const {
    const fs::path file = fs::path(scratch_.path()) / path;
    fs::create_directories(file.parent_path());
    std::ofstream(file) << text;
  }

  // A device whose folder is /sys/devices/`place`; its last component is the name.
  std::string add(const std::string& place, const std::string& type = "disk") {
    const std::string name = fs::path(place).filename();
    write("sys/devices/" + place + "/uevent", "MAJOR=8\nDEVNAME=" + name + "\nDEVTYPE=" + type + "\n");
    write("sys/devices/" + place + "/size", "2048\n");
    write("sys/devices/" + place + "/dev", "8:" + std::to_string(++minor_) + "\n");
    if (type == "partition") write("sys/devices/" + place + "/partition", "1\n");
    fs::create_directories(at("sys/class/block"));
    fs::create_symlink("../../devices/" + place, at("sys/class/block/" + name));
    return name;
  }

  // A device that is stacked on others.
  std::string stack(const std::string& name, std::initializer_list<std::string> slaves) {
    add("virtual/block/" + name);
    for (const std::string& slave : slaves) {
      fs::create_directories(at("sys/class/block/" + name + "/slaves"));
      fs::create_symlink("../../" + slave, at("sys/class/block/" + name + "/slaves/" + slave));
    }
    return name;
  }

  [[nodiscard]] std::string number(const std::string& name) const {
    std::string text;
    std::ifstream(at("sys/class/block/" + name + "/dev")) >> text;
    return text;
  }

  // Puts a line into the mount table: the device number, the path and what follows the dash.
  void mount(const std::string& deviceNumber, const std::string& path, const std::string& rest) {
    table_ +=
        std::to_string(++minor_) + " 1 " + deviceNumber + " / " + path + " rw shared:1 - " + rest + " rw\n";
    write("mountinfo", table_);
  }
  void mountDevice(const std::string& name, const std::string& path) {
    mount(number(name), path, "ext4 /dev/" + name);
  }

  [[nodiscard]] std::string at(const std::string& path) const { return scratch_.path() + "/" + path; }
  [[nodiscard]] SysfsDeviceFacts facts() const {
    return SysfsDeviceFacts({at("sys"), at("mountinfo"), at("dev"), at("swaps")});
  }
  [[nodiscard]] DeviceFacts factsOf(const std::string& name) const {
    return facts().facts(name).value_or(DeviceFacts());
  }

 private:
  TemporaryFolder scratch_;
  std::string table_;
  int minor_ = 0;
};

TEST(SysfsDeviceFactsTest, aDiskAndItsPartition) {
  Machine machine;
  machine.add(kUsb + "sdb");
  machine.add(kUsb + "sdb/sdb1", "partition");
  machine.write("sys/class/block/sdb/queue/logical_block_size", "4096\n");
  machine.write("sys/class/block/sdb/removable", "1\n");
  machine.write("sys/class/block/sdb1/size", "16\n");
  EXPECT_EQ(machine.facts().facts("sdb"), (DeviceFacts{"sdb", true, false, true, 1'048'576, 4096, false}));
  EXPECT_EQ(machine.facts().facts("sdb1"), (DeviceFacts{"sdb1", false, false, true, 8192, 4096, false}));
  EXPECT_EQ(machine.facts().wholeDisks("sdb1"), (Names{"sdb"}));
  EXPECT_EQ(machine.facts().wholeDisks("sdb"), (Names{"sdb"}));
}

TEST(SysfsDeviceFactsTest, whereADiskIs) {
  struct Place {
    std::string folder;
    bool isInternal, isVirtual;
  };
  const std::vector<Place> places = {
      {kSata + "a", true, false},
      {kUsb + "b", false, false},
      {"platform/soc/fe980000.usb/usb10/10-1/10-1:1.0/host0/target0:0:0/0:0:0:0/block/c", false, false},
      {"pci0000:00/0000:00:01.0/0000:02:00.0/fw1/fw1.0/host3/target3:0:0/3:0:0:0/block/d", false, false},
      {kPort + "/rtsx_pci_ms.0/memstick_host/memstick0/memstick0:0001/block/e", false, false},
      {"platform/usbfoo/usbx/host1/block/f", true, false},  // only "usb" and a number is a bus
      {"platform/host9/session1/target9:0:0/9:0:0:1/block/g", true, false},  // over a network
      {"pseudo_0/adapter0/host1/target1:0:0/1:0:0:0/block/h", true, false},  // nobody knows
      {"virtual/nvme-subsystem/nvme-subsys0/i", true, false},
      {"virtual/block/j", false, true},
      {"virtual/ublk-char/ublkc0/k", false, true},
      {"pci0000:00/0000:00:04.0/virtio1/block/l", true, false},
  };
  Machine machine;
  for (const auto& [folder, isInternal, isVirtual] : places) {
    const DeviceFacts facts = machine.factsOf(machine.add(folder));
    EXPECT_TRUE(facts.isWhole) << folder;
    EXPECT_EQ(facts.isInternal, isInternal) << folder;
    EXPECT_EQ(facts.isVirtual, isVirtual) << folder;
  }
}

TEST(SysfsDeviceFactsTest, cardsInSlotsAreExternalAndSolderedOnesAreNot) {
  Machine machine;
  const std::string mmc = kPort + "/mmc_host/mmc0/mmc0:0001";
  machine.add(mmc + "/block/mmcblk0");
  machine.add(mmc + "/block/mmcblk0/mmcblk0p1", "partition");
  EXPECT_TRUE(machine.factsOf("mmcblk0").isInternal) << "of no known type";
  machine.write("sys/devices/" + mmc + "/type", "MMC\n");
  EXPECT_TRUE(machine.factsOf("mmcblk0p1").isInternal);
  machine.write("sys/devices/" + mmc + "/type", "SD\n");
  EXPECT_FALSE(machine.factsOf("mmcblk0").isInternal);
  EXPECT_FALSE(machine.factsOf("mmcblk0p1").isInternal);

  machine.add(kPort + "/host5/target5:0:0/5:0:0:0/block/sdb");
  const std::string function = "sys/devices/" + kPort + "/uevent";
  for (const auto& [text, isInternal] :
       std::vector<std::pair<std::string, bool>>{{"DRIVER=x\nPCI_CLASS=FF0000\nPCI_ID=10EC:525A\n", false},
                                                 {"PCI_CLASS=10000\nPCI_ID=10EC:525A\n", true},
                                                 {"PCI_CLASS=FF0000\nPCI_ID=8086:10EC\n", true},
                                                 {"PCI_CLASS=FF0000\nSUB_PCI_ID=10EC:525A\n", true}}) {
    machine.write(function, text);
    EXPECT_EQ(machine.factsOf("sdb").isInternal, isInternal) << text;
  }
}

TEST(SysfsDeviceFactsTest, thunderboltNeedsTheKernelsMarkAndAHostWithADevice) {
  Machine machine;
  const auto isInternal = [&](const std::string& disk) { return machine.factsOf(disk).isInternal; };
  const auto mark = [&](const std::string& function, const std::string& text = "removable") {
    machine.write("sys/devices/" + function + "/removable", text + "\n");
  };
  const auto plug = [&](const std::string& host, const std::string& name) {
    fs::create_directories(machine.at("sys/devices/" + host + "/domain0/" + name));
    fs::create_directories(machine.at("sys/bus/thunderbolt/devices"));
    fs::create_symlink("../../../devices/" + host + "/domain0/" + name,
                       machine.at("sys/bus/thunderbolt/devices/" + name));
  };
  machine.add(kPort + "/0000:03:00.0/0000:04:00.0/nvme/nvme1/nvme1n1");
  mark(kPort + "/0000:03:00.0");
  EXPECT_TRUE(isInternal("nvme1n1")) << "there is no such bus";
  const std::string inProcessor = "pci0000:00/0000:00:0d.2";
  for (const char* own : {"0-0", "1-0", "0-0:1.1", "0-1.1"}) plug(inProcessor, own);
  const std::string supplier = machine.at("sys/devices/" + kPort + "/supplier:pci:0000:00:0d.2");
  fs::create_symlink("../../virtual/devlink/it", supplier);
  EXPECT_TRUE(isInternal("nvme1n1")) << "nothing is plugged in";
  plug(inProcessor, "0-301");
  EXPECT_FALSE(isInternal("nvme1n1"));
  mark(kPort + "/0000:03:00.0", "fixed");
  EXPECT_TRUE(isInternal("nvme1n1"));
  mark(kPort + "/0000:03:00.0");
  fs::remove(supplier);
  EXPECT_TRUE(isInternal("nvme1n1")) << "behind a switch in a port that has nothing to do with the host";

  const std::string chip = "pci0000:00/0000:00:1d.0/0000:05:00.0";
  machine.add(chip + "/0000:06:01.0/0000:08:00.0/0000:09:00.0/nvme/nvme2/nvme2n1");
  mark(chip);
  EXPECT_TRUE(isInternal("nvme2n1"));
  plug(chip + "/0000:06:00.0/0000:07:00.0", "1-1");
  EXPECT_FALSE(isInternal("nvme2n1"));

  machine.add("pci0000:00/0000:00:1b.0/0000:0a:00.0/nvme/nvme3/nvme3n1");
  mark("pci0000:00/0000:00:1b.0/0000:0a:00.0");
  EXPECT_TRUE(isInternal("nvme3n1")) << "in a slot that the firmware takes for a way out";
}

TEST(SysfsDeviceFactsTest, whatTheKernelDoesNotSayIsTheSafeAnswer) {
  Machine machine;
  machine.add(kSata + "sda");
  const auto with = [&](const std::string& file, const std::string& text) {
    machine.write("sys/class/block/sda/" + file, text);
    return machine.factsOf("sda");
  };
  for (const char* size : {"", "x", "-1", "18446744073709551615", "18014398509481984", "2048 x"}) {
    EXPECT_EQ(with("size", size).sizeBytes, 0) << size;
  }
  EXPECT_EQ(with("size", "18014398509481983").sizeBytes, std::int64_t{18014398509481983} * 512);
  for (const char* size : {"", "0", "256", "1000", "-4096", "2097152", "x"}) {
    EXPECT_EQ(with("queue/logical_block_size", size).blockSize, 512) << size;
  }
  EXPECT_FALSE(with("removable", "0\n").isRemovableOrEjectable);
  EXPECT_TRUE(with("events", "media_change eject_request\n").isRemovableOrEjectable);
  EXPECT_TRUE(machine.factsOf("sda").isWhole);
  EXPECT_FALSE(with("uevent", "DEVTYPE=disks\n").isWhole);
  EXPECT_FALSE(with("uevent", "DEVTYPE=partition\n").isWhole);
  EXPECT_FALSE(with("uevent", "").isWhole);
  fs::remove(machine.at("sys/class/block/sda/uevent"));
  EXPECT_FALSE(machine.factsOf("sda").isWhole);
}

TEST(SysfsDeviceFactsTest, namesLeadNowhereElse) {
  Machine machine;
  machine.add(kSata + "sda");
  machine.add("pci0000:00/nvme/nvme0/nvme0c1n1");
  machine.write("sys/class/block/nvme0c1n1/hidden", "1\n");
  machine.write("outside/uevent", "DEVTYPE=disk\n");
  fs::create_symlink("../../../outside", machine.at("sys/class/block/outside"));
  fs::create_symlink("loop", machine.at("sys/class/block/loop"));
  fs::create_symlink("../..", machine.at("sys/class/block/top"));
  for (const std::string& name :
       {std::string(), std::string("."), std::string(".."), std::string("sdb"), std::string("/"),
        std::string("sda/"), std::string("sda/../sda"), std::string("../block/sda"), machine.at("outside"),
        std::string("sda\0", 4), std::string(300, 'a'), std::string("outside"), std::string("loop"),
        std::string("top"), std::string("nvme0c1n1")}) {
    EXPECT_EQ(machine.facts().facts(name), std::nullopt) << name;
    EXPECT_TRUE(machine.facts().wholeDisks(name).empty()) << name;
  }
  EXPECT_EQ(SysfsDeviceFacts({machine.at("none"), "", ""}).facts("sda"), std::nullopt);
}

TEST(SysfsDeviceFactsTest, stacksGoDownToTheDisks) {
  Machine machine;
  machine.add(kSata + "sda");
  machine.add(kSata + "sda/sda2", "partition");
  machine.add(kUsb + "sdb");
  machine.add(kUsb + "sdb/sdb1", "partition");
  machine.stack("loop0", {});
  machine.stack("md0", {"sda2", "sdb1"});
  machine.add("virtual/block/md0/md0p1", "partition");
  machine.stack("dm-0", {"md0p1"});
  machine.stack("dm-1", {"dm-0", "loop0"});
  machine.stack("dm-2", {});
  machine.stack("bcache0", {"sdb1", "gone"});
  EXPECT_EQ(machine.facts().wholeDisks("dm-0"), (Names{"sda", "sdb"}));
  EXPECT_EQ(machine.facts().wholeDisks("dm-1"), (Names{"loop0", "sda", "sdb"}));
  EXPECT_EQ(machine.facts().wholeDisks("dm-2"), (Names{"dm-2"}));
  EXPECT_EQ(machine.facts().wholeDisks("bcache0"), Names()) << "a part of it cannot be told";

  machine.stack("dm-8", {"dm-9"});
  machine.stack("dm-9", {"dm-8", "sdb1"});
  EXPECT_EQ(machine.facts().wholeDisks("dm-8"), (Names{"sdb"})) << "a circle ends";

  for (const char* member : {"sda2", "sdb1"}) {
    fs::create_directories(machine.at(std::string("sys/fs/btrfs/12-34/devices/") + member));
  }
  EXPECT_EQ(machine.facts().wholeDisks("sdb1"), (Names{"sda", "sdb"})) << "one file system on both";
}

TEST(SysfsDeviceFactsTest, theSystemsDisksComeFromTheMountTable) {
  Machine machine;
  EXPECT_THROW((void)machine.facts().bootWholeDisks(), std::system_error);
  for (const char* disk : {"sda", "sdb", "sdc", "sdd", "sde", "sdf"}) machine.add(kSata + disk);
  machine.add(kSata + "sdb/sdb1", "partition");
  machine.stack("dm-0", {"sdc"});
  machine.write("sys/class/block/dm-0/dm/name", "luks-root\n");

  machine.mountDevice("sda", "/");
  EXPECT_EQ(machine.facts().bootWholeDisks(), (Names{"sda"}));
  machine.mountDevice("sdf", "/Volumes/USB");
  machine.mount("0:40", "/", "btrfs /dev/mapper/luks-root");
  EXPECT_EQ(machine.facts().bootWholeDisks(), (Names{"sdc"})) << "the last mount on a path counts";
  machine.mount("0:41", "/boot/efi", "autofs systemd-1");
  machine.mountDevice("sdb1", "/boot/efi");
  machine.mount(machine.number("sdd"), "/usr", "ext4 /dev/root");
  machine.mount("0:42", "/System/Volumes/Data", "bcachefs /dev/sde:/dev/sda");
  EXPECT_EQ(machine.facts().bootWholeDisks(), (Names{"sda", "sdb", "sdc", "sdd", "sde"}));

  machine.mount("0:43", "/", "overlay sdf");
  machine.mount("0:44", "/boot/efi", "nfs4 nas:/dev/sdf");
  machine.mount("0:45", "/System/Volumes/Data", "zfs pool/dev/sdf");
  machine.mount("99:99", "/usr", "ext4 /dev/root");
  EXPECT_EQ(machine.facts().bootWholeDisks(), Names());
}

TEST(SysfsDeviceFactsTest, theSystemNeedsMoreThanItsBootDisks) {
  Machine machine;
  for (const char* disk : {"sda", "sdb", "sdc", "sdd", "sde", "sdf", "sdg"}) machine.add(kSata + disk);
  machine.add(kSata + "sdb/sdb1", "partition");
  const auto loop = [&](const std::string& name, const std::string& shown) {
    machine.stack(name, {});
    machine.write("sys/class/block/" + name + "/loop/backing_file", shown + "\n");
  };
  const auto isNeeded = [&](const Names& expected) {
    Names disks = machine.facts().systemWholeDisks();
    for (const char* shown : {"loop0", "loop1", "loop2"}) disks.erase(shown);
    EXPECT_EQ(disks, expected);
  };

  // A live system: an overlay over an image on a stick, which no mount names as the root's disk.
  loop("loop0", "/cdrom/live/system.squashfs");
  machine.mount("0:40", "/", "overlay overlay rw,lowerdir=/mnt/root,upperdir=/none/upper,workdir=/none/work");
  machine.mountDevice("loop0", "/mnt/root");
  isNeeded({});
  machine.mountDevice("sda", "/cdrom");
  isNeeded({"sda"});
  EXPECT_EQ(machine.facts().bootWholeDisks(), Names()) << "it may be read";

  // Loop devices over a partition, one with a RAID set on it, and one that shows another one.
  loop("loop1", "/dev/sdb1 (deleted)");
  loop("loop2", "/dev/loop1");
  machine.stack("md0", {"loop2"});
  machine.mountDevice("md0", "/opt/tools");
  isNeeded({"sda", "sdb"});
  EXPECT_EQ(machine.facts().wholeDisks("loop1"), (Names{"loop1"}))
      << "an attached image is a disk of its own";

  for (const char* place : {"/media/ann/stick", "/Volumes/Stick", "/home/ann/stick", "/variety"}) {
    machine.mountDevice("sdc", place);
  }
  isNeeded({"sda", "sdb"});
  machine.mountDevice("sdc", "/home/ann");
  machine.mount("0:41", "/home/ann", "tmpfs tmpfs");
  isNeeded({"sda", "sdb", "sdc"});
  machine.mountDevice("sdd", "/var");
  machine.mountDevice("sde", "/mnt");
  machine.write("swaps", "Filename\t\t\tType\n/mnt/a\\040file file 1 0 -2\n/dev/sdf partition 1 0 -3\n");
  isNeeded({"sda", "sdb", "sdc", "sdd", "sde", "sdf"});
}

TEST(SysfsDeviceFactsTest, aSourceThatIsALinkIsFollowed) {
  const auto root = mountedVolume("/");
  if (!root || root->mountedFrom.empty()) GTEST_SKIP() << "needs a block device; the root lies on none";
  struct stat status {};
  ASSERT_EQ(::stat(root->mountedFrom.c_str(), &status), 0);
  Machine machine;
  machine.add(kSata + "sda");
  machine.write("sys/class/block/sda/dev",
                std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev)) + "\n");
  fs::create_directories(machine.at("dev/disk/by-label"));
  fs::create_symlink(root->mountedFrom, machine.at("dev/disk/by-label/system"));
  machine.mount("0:40", "/", "btrfs /dev/disk/by-label/system");
  EXPECT_EQ(machine.facts().bootWholeDisks(), (Names{"sda"}));
}

// What the kernel answers about the open device, for those that can be opened.
TEST(SysfsDeviceFactsOfTheHostTest, agreeWithTheDevicesThemselves) {
  const auto provider = makeDeviceFacts();
  std::error_code error;
  std::size_t opened = 0;
  for (const auto& entry : fs::directory_iterator("/sys/class/block", error)) {
    const std::string name = entry.path().filename();
    const auto facts = provider->facts(name);
    if (!facts) continue;
    EXPECT_EQ(facts->bsdName, name);
    EXPECT_EQ(facts->isWhole, !fs::exists(entry.path() / "partition")) << name;
    EXPECT_FALSE(provider->wholeDisks(name).empty()) << name;
    if (name.rfind("loop", 0) == 0 || name.rfind("dm-", 0) == 0 || name.rfind("zram", 0) == 0) {
      EXPECT_TRUE(facts->isVirtual) << name;
    }
    const FileDescriptor device(::open(("/dev/" + name).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    std::uint64_t size = 0;
    int blockSize = 0;
    if (!device || ::ioctl(device.get(), BLKGETSIZE64, &size) != 0 ||
        ::ioctl(device.get(), BLKSSZGET, &blockSize) != 0) {
      continue;
    }
    // Other programs of this machine make and change devices meanwhile.
    if (provider->facts(name) != facts) continue;
    ++opened;
    EXPECT_EQ(static_cast<std::uint64_t>(facts->sizeBytes), size) << name;
    EXPECT_EQ(facts->blockSize, blockSize) << name;
  }
  const auto root = mountedVolume("/");
  if (root && !root->mountedFrom.empty()) {
    const std::string name = fs::path(root->mountedFrom).filename();
    const Names disks = provider->wholeDisks(name), bootDisks = provider->bootWholeDisks();
    EXPECT_FALSE(disks.empty()) << name;
    for (const std::string& disk : disks) EXPECT_EQ(bootDisks.count(disk), 1U) << disk;
  }
  if (opened == 0) GTEST_SKIP() << "no block device can be opened here";
}

}  // namespace
}  // namespace molvane
