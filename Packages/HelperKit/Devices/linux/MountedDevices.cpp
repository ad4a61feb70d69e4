#include "HelperKit/Devices/linux/MountedDevices.hpp"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>

#include "Base/PathText.hpp"

namespace molvane {
namespace {

constexpr std::string_view kDevices = "/dev";

// With all that lies below them. The last ones are where live systems mount their medium.
constexpr std::array kSystemTrees = std::to_array<std::string_view>(
    {"/bin",      "/boot",          "/efi",          "/etc",      "/gnu",        "/lib",
     "/lib32",    "/lib64",         "/nix",          "/opt",      "/ostree",     "/root",
     "/sbin",     "/srv",           "/sysroot",      "/usr",      "/var",        "/System",
     "/Library",  "/private",       "/Applications", "/cdrom",    "/rofs",       "/isodevice",
     "/run/live", "/run/initramfs", "/run/archiso",  "/run/miso", "/run/overlay"});

bool isAtOrBelow(std::string_view path, std::string_view folder) {
  return path.substr(0, folder.size()) == folder &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

// "/dev/sda1", or "/dev/sda1:/dev/sdb1" for a file system on several. Texts that are no paths name no device.
std::vector<std::string> pathsIn(std::string_view source) {
  std::vector<std::string> paths;
  while (source.substr(0, kDevices.size() + 1) == "/dev/") {
    const std::size_t end = source.find(":/dev/");
    paths.emplace_back(source.substr(0, end));
    if (end == std::string_view::npos) break;
    source.remove_prefix(end + 1);
  }
  return paths;
}

}  // namespace

bool isSystemFolder(const std::string& mountPoint) {
  const std::string parent = deletingLastPathComponent(mountPoint);
  for (const std::string_view homes : {"/home", "/Users"}) {
    if (mountPoint == homes || parent == homes) return true;
  }
  return mountPoint == "/" || mountPoint == "/tmp" ||
         std::any_of(kSystemTrees.begin(), kSystemTrees.end(),
                     [&](std::string_view tree) { return isAtOrBelow(mountPoint, tree); });
}

MountedDevices::MountedDevices(const std::string& sysfs, std::string devices, std::vector<Mount> mounts)
    : devices_(std::move(devices)), mounts_(std::move(mounts)) {
  for (const std::string& name : BlockDevice::allNames(sysfs)) {
    std::optional<BlockDevice> device = BlockDevice::find(sysfs, name);
    if (!device) continue;
    namesByNumber_.emplace(device->number(), name);
    all_.push_back(*std::move(device));
  }
}

const Mount* MountedDevices::mountOn(std::string_view path) const {
  const auto last = std::find_if(mounts_.rbegin(), mounts_.rend(),
                                 [&](const Mount& mount) { return mount.mountPoint == path; });
  return last == mounts_.rend() ? nullptr : &*last;
}

const Mount* MountedDevices::mountHolding(std::string_view path) const {
  while (true) {
    if (const Mount* mount = mountOn(path.empty() ? "/" : path)) return mount;
    if (path.empty()) return nullptr;
    path = path.substr(0, path.rfind('/'));
  }
}

std::set<std::string> MountedDevices::devicesOf(const Mount& mount) const {
  std::set<std::string> found;
  if (mount.major != 0) found = devicesOfNumber(mount.major, mount.minor);
  if (!found.empty()) return found;
  for (const std::string& path : pathsIn(mount.source)) found.merge(devicesOfPath(path));
  return found;
}

std::set<std::string> MountedDevices::devicesBelow(const Mount& mount) const {
  std::set<std::string> found;
  std::deque<const Mount*> next = {&mount};
  std::set<const Mount*> seen = {&mount};
  for (; !next.empty(); next.pop_front()) {
    found.merge(devicesOf(*next.front()));
    for (const std::string& layer : next.front()->layers) {
      const Mount* below = mountHolding(layer);
      if (below != nullptr && seen.insert(below).second) next.push_back(below);
    }
  }
  return found;
}

std::set<std::string> MountedDevices::devicesBehind(std::string path) const {
  constexpr std::string_view kDeleted = " (deleted)";
  if (path.size() > kDeleted.size() && path.ends_with(kDeleted)) path.resize(path.size() - kDeleted.size());
  if (path.substr(0, 1) != "/") return {};
  std::set<std::string> found;
  if (isAtOrBelow(path, kDevices)) found = devicesOfPath(path);
  if (!found.empty()) return found;
  const Mount* mount = mountHolding(path);
  return mount == nullptr ? found : devicesBelow(*mount);
}

// By the device that the path below /dev names now, or else by the names that the kernel itself uses.
std::set<std::string> MountedDevices::devicesOfPath(const std::string& path) const {
  const std::string node = devices_ + path.substr(kDevices.size());
  struct stat status {};
  if (stat(node.c_str(), &status) == 0 && S_ISBLK(status.st_mode)) {
    return devicesOfNumber(major(status.st_rdev), minor(status.st_rdev));
  }
  const std::string name = lastPathComponent(path);
  std::set<std::string> found;
  for (const BlockDevice& device : all_) {
    if (device.name() == name) return {name};
    if (device.mapperName() == name) found.insert(device.name());
  }
  return found;
}

std::set<std::string> MountedDevices::devicesOfNumber(std::uint64_t major, std::uint64_t minor) const {
  std::set<std::string> found;
  const auto [first, last] = namesByNumber_.equal_range(std::to_string(major) + ":" + std::to_string(minor));
  for (auto entry = first; entry != last; ++entry) found.insert(entry->second);
  return found;
}

}  // namespace molvane
