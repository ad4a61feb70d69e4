#include "HelperKit/Devices/linux/SysfsDeviceFacts.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <deque>
#include <utility>
#include <vector>

#include "Base/PathText.hpp"
#include "HelperKit/Devices/linux/BlockDevice.hpp"
#include "HelperKit/Devices/linux/MountedDevices.hpp"
#include "HelperKit/Devices/linux/SysfsText.hpp"
#include "Platform/linux/MountTable.hpp"

namespace molvane {
namespace {

constexpr std::array<std::string_view, 6> kBootPaths = {"/",    "/boot", "/boot/efi",
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

// `shownBy` gives the devices that a device shows without being stacked on them, as a loop
// device does.
template <typename ShownBy>
Bottom bottomOf(const std::string& sysfs, std::set<std::string> seen, ShownBy shownBy) {
  constexpr std::size_t kMostDevices = 4096;
  Bottom bottom;
  std::deque<std::string> next(seen.begin(), seen.end());
  const auto descend = [&](const auto& names) {
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
      descend(std::set{device->parentName()});
    } else if (!slaves->empty()) {
      descend(*slaves);
    } else {
      bottom.disks.insert(next.front());
      descend(shownBy(*device));
    }
  }
  return bottom;
}

Bottom bottomOf(const std::string& sysfs, const std::set<std::string>& names) {
  return bottomOf(sysfs, names, [](const BlockDevice&) { return std::set<std::string>(); });
}

}  // namespace

std::optional<DeviceFacts> SysfsDeviceFacts::facts(const std::string& bsdName) const {
  const std::optional<BlockDevice> device = BlockDevice::find(places_.sysfs, bsdName);
  if (!device) return std::nullopt;
  return device->facts();
}

std::set<std::string> SysfsDeviceFacts::wholeDisks(const std::string& bsdName) const {
  Bottom bottom = bottomOf(places_.sysfs, {bsdName});
  if (!bottom.isAll) return {};
  return std::move(bottom.disks);
}

std::set<std::string> SysfsDeviceFacts::bootWholeDisks() const {
  const MountedDevices mounted(places_.sysfs, places_.devices, readMountTable(places_.mountTable));
  std::set<std::string> devices;
  for (const std::string_view path : kBootPaths) {
    if (const Mount* mount = mounted.mountOn(path)) devices.merge(mounted.devicesOf(*mount));
  }
  return bottomOf(places_.sysfs, devices).disks;
}

std::set<std::string> SysfsDeviceFacts::systemWholeDisks() const {
  const MountedDevices mounted(places_.sysfs, places_.devices, readMountTable(places_.mountTable));
  std::set<std::string> devices;
  for (const Mount& mount : mounted.mounts()) {
    if (isSystemFolder(mount.mountPoint)) devices.merge(mounted.devicesBelow(mount));
  }
  for (const std::string& path : readSwapTable(places_.swapTable)) devices.merge(mounted.devicesBehind(path));
  const auto shownBy = [&](const BlockDevice& device) { return mounted.devicesBehind(device.backingFile()); };
  return bottomOf(places_.sysfs, devices, shownBy).disks;
}

std::shared_ptr<const DeviceFactsProviding> makeDeviceFacts() { return std::make_shared<SysfsDeviceFacts>(); }

}  // namespace molvane
