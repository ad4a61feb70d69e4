#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "HelperKit/Devices/linux/BlockDevice.hpp"
#include "Platform/linux/MountTable.hpp"

namespace molvane {

/// Whether a mount at that path holds a part of the running system: a system folder or something below it,
/// the folder of the home folders or one of these, or a place that live systems have for their medium.
[[nodiscard]] bool isSystemFolder(const std::string& mountPoint);

/// Which block devices carry the mounts of a machine and the files in them. Devices are told by their names
/// in /sys/class/block. A device that cannot be told is left out.
class MountedDevices {
 public:
  /// Looks at all devices once.
  MountedDevices(const std::string& sysfs, std::string devices, std::vector<Mount> mounts);

  [[nodiscard]] const std::vector<Mount>& mounts() const { return mounts_; }
  /// The mount that is to be seen at the path; null when nothing is mounted there.
  [[nodiscard]] const Mount* mountOn(std::string_view path) const;

  /// The devices that are mounted.
  [[nodiscard]] std::set<std::string> devicesOf(const Mount& mount) const;
  /// The same, and for an overlay the devices that are mounted below its layers.
  [[nodiscard]] std::set<std::string> devicesBelow(const Mount& mount) const;
  /// The device of that path, or those that carry the file system of a file there. None for an empty path.
  [[nodiscard]] std::set<std::string> devicesBehind(std::string path) const;

 private:
  // The mount that holds what is at an absolute path, by the texts alone.
  [[nodiscard]] const Mount* mountHolding(std::string_view path) const;
  [[nodiscard]] std::set<std::string> devicesOfNumber(std::uint64_t major, std::uint64_t minor) const;
  [[nodiscard]] std::set<std::string> devicesOfPath(const std::string& path) const;

  std::string devices_;
  std::vector<Mount> mounts_;
  std::vector<BlockDevice> all_;
  std::multimap<std::string, std::string> namesByNumber_;
};

}  // namespace molvane
