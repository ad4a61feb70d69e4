#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "HelperKit/Devices/DeviceFacts.hpp"

namespace molvane {

/// The facts about disks as the Linux kernel gives them. A device's name is its name in /sys/class/block.
///
/// A disk is external when the way to it is known to lead out of the case or into a card slot, and internal
/// otherwise; one that exists in software only is virtual and neither. The block size is the logical one.
class SysfsDeviceFacts final : public DeviceFactsProviding {
 public:
  /// Where the kernel's answers stand.
  struct Places {
    std::string sysfs = "/sys";
    std::string mountTable = "/proc/thread-self/mountinfo";
    std::string devices = "/dev";  ///< for mounts that are known by their source's name alone
    std::string swapTable = "/proc/swaps";
  };

  SysfsDeviceFacts() = default;
  explicit SysfsDeviceFacts(Places places) : places_(std::move(places)) {}

  [[nodiscard]] std::optional<DeviceFacts> facts(const std::string& bsdName) const override;

  /// All devices of a mounted btrfs count as lying below each of them.
  [[nodiscard]] std::set<std::string> wholeDisks(const std::string& bsdName) const override;

  /// The whole disks below what is mounted on "/", "/boot", "/boot/efi", "/efi", "/usr" and
  /// "/System/Volumes/Data". A file system whose disks the kernel does not name (ZFS, an overlay, one from
  /// the network) adds none.
  [[nodiscard]] std::set<std::string> bootWholeDisks() const override;

  /// Of all mounts on system folders, also such as are covered by others, on people's home folders, and on
  /// the places that live systems have for their medium; through overlays, loop devices and the files behind
  /// them.
  [[nodiscard]] std::set<std::string> systemWholeDisks() const override;

 private:
  Places places_;
};

}  // namespace molvane
