#include "HelperKit/Devices/linux/SysfsDeviceFacts.hpp"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <deque>
#include <utility>
#include <vector>

#include "Base/PathText.hpp"
#include "HelperKit/Devices/linux/BlockDevice.hpp"
#include "HelperKit/Devices/linux/SysfsText.hpp"
#include "Platform/linux/MountTable.hpp"

namespace molvane {
namespace {

constexpr std::array<std::string_view, 6> kSystemPaths = {"/",    "/boot", "/boot/efi",
                                                          "/efi", "/usr",  "/System/Volumes/Data"};

// The other devices of the mounted btrfs that this one is a part of.
std::vector<std::string> btrfsPeers(const std::string& sysfs, const std::string& name) {
  const std::string folder = sysfs + "/fs/btrfs";
  for (const std::string& identifier : SysfsText::namesIn(folder).value_or(std::vector<std::string>())) {
    const auto members = SysfsText::namesIn(appendingPathComponent(folder, identifier) + "/devices");
    if (members && std::find(members->begin(), members->end(), name) != members->end()) return *members;
  }
  return {};
}

// The disks below some devices.
struct Bottom {
  std::set<std::string> disks;
  bool isAll = true;  // nothing on the way down was missing
};

Bottom bottomOf(const std::string& sysfs, const std::string& name) {
  constexpr std::size_t kMostDevices = 4096;
  Bottom bottom;
  std::deque<std::string> next = {name};
  std::set<std::string> seen = {name};
  const auto descend = [&](const std::vector<std::string>& names) {
    for (const std::string& below : names) {
      if (seen.insert(below).second) next.push_back(below);
    }
  };
  for (; !next.empty(); next.pop_front()) {
    if (seen.size() > kMostDevices) return {std::move(bottom.disks), false};
    const std::optional<BlockDevice> device = BlockDevice::find(sysfs, next.front());
    const std::optional<std::vector<std::string>> slaves = device ? device->slaves() : std::nullopt;
    if (!slaves) {
      bottom.isAll = false;
      continue;
    }
    descend(btrfsPeers(sysfs, next.front()));
    if (device->isPartition()) {
      descend({device->parentName()});
    } else if (!slaves->empty()) {
      descend(*slaves);
    } else {
      bottom.disks.insert(next.front());
    }
  }
  return bottom;
}

template <typename Test>
std::vector<std::string> devicesWhere(const std::string& sysfs, Test test) {
  std::vector<std::string> found;
  for (const std::string& name : BlockDevice::allNames(sysfs)) {
    const std::optional<BlockDevice> device = BlockDevice::find(sysfs, name);
    if (device && test(*device)) found.push_back(name);
  }
  return found;
}

std::string numberText(std::uint64_t major, std::uint64_t minor) {
  return std::to_string(major) + ":" + std::to_string(minor);
}

std::vector<std::string> devicesOfNumber(const std::string& sysfs, const std::string& number) {
  return devicesWhere(sysfs, [&](const BlockDevice& device) { return device.number() == number; });
}

// By the device that the path names now, or else by the names that the kernel itself uses.
std::vector<std::string> devicesOfPath(const std::string& sysfs, const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode)) {
    return devicesOfNumber(sysfs, numberText(major(status.st_rdev), minor(status.st_rdev)));
  }
  const std::string name = lastPathComponent(path);
  if (BlockDevice::find(sysfs, name)) return {name};
  return devicesWhere(sysfs, [&](const BlockDevice& device) { return device.mapperName() == name; });
}

// "/dev/sda1", or "/dev/sda1:/dev/sdb1" for a file system on several. Texts that are no paths name no device.
std::vector<std::string> pathsIn(std::string_view source) {
  constexpr std::string_view kDevices = "/dev/";
  std::vector<std::string> paths;
  while (source.substr(0, kDevices.size()) == kDevices) {
    const std::size_t end = source.find(":/dev/");
    paths.emplace_back(source.substr(0, end));
    if (end == std::string_view::npos) break;
    source.remove_prefix(end + 1);
  }
  return paths;
}

std::vector<std::string> devicesOf(const SysfsDeviceFacts::Places& places, const Mount& mount) {
  std::vector<std::string> devices;
  if (mount.major != 0) devices = devicesOfNumber(places.sysfs, numberText(mount.major, mount.minor));
  if (!devices.empty()) return devices;
  for (const std::string& path : pathsIn(mount.source)) {
    const std::string rest = path.substr(std::string_view("/dev").size());
    for (std::string& name : devicesOfPath(places.sysfs, places.devices + rest)) {
      devices.push_back(std::move(name));
    }
  }
  return devices;
}

}  // namespace

std::optional<DeviceFacts> SysfsDeviceFacts::facts(const std::string& bsdName) const {
  const std::optional<BlockDevice> device = BlockDevice::find(places_.sysfs, bsdName);
  if (!device) return std::nullopt;
  return device->facts();
}

std::set<std::string> SysfsDeviceFacts::wholeDisks(const std::string& bsdName) const {
  Bottom bottom = bottomOf(places_.sysfs, bsdName);
  if (!bottom.isAll) return {};
  return std::move(bottom.disks);
}

std::set<std::string> SysfsDeviceFacts::bootWholeDisks() const {
  const std::vector<Mount> mounts = readMountTable(places_.mountTable);
  std::set<std::string> disks;
  for (const std::string_view path : kSystemPaths) {
    const auto last = std::find_if(mounts.rbegin(), mounts.rend(),
                                   [&](const Mount& mount) { return mount.mountPoint == path; });
    if (last == mounts.rend()) continue;
    for (const std::string& device : devicesOf(places_, *last)) {
      disks.merge(bottomOf(places_.sysfs, device).disks);
    }
  }
  return disks;
}

std::shared_ptr<const DeviceFactsProviding> makeDeviceFacts() { return std::make_shared<SysfsDeviceFacts>(); }

}  // namespace molvane
