#pragma once

#include <string>

// What a device's place in sysfs tells: /sys/devices/ and then every bus, controller and port down to the
// disk.

namespace molvane::BusPath {

/// Whether the device exists in software only: loop devices, device-mapper, RAID sets, zram, nbd, bcache.
/// NVMe disks that several controllers lead to stand among the virtual devices too and are none.
[[nodiscard]] bool isVirtual(const std::string& sysfs, const std::string& folder);

/// Whether the disk is known to be outside the machine's case or in a card slot: something on the way down to
/// it is a USB, FireWire or Thunderbolt connection or a card reader. False for everything that cannot be
/// told, such as disks behind a network.
[[nodiscard]] bool isExternal(const std::string& sysfs, const std::string& folder);

}  // namespace molvane::BusPath
