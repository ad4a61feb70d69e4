#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace molvane {

/// What is known about a disk or a partition. A plain value.
struct DeviceFacts {
  std::string bsdName;  ///< such as "disk4"
  bool isWhole = false;
  bool isInternal = false;
  bool isRemovableOrEjectable = false;
  std::int64_t sizeBytes = 0;
  std::int64_t blockSize = 512;  ///< bytes
  bool isVirtual = false;        ///< an attached disk image or the like, no drive

  bool operator==(const DeviceFacts&) const = default;
};

/// Where the facts come from. Any thread may call; every call reads afresh.
class DeviceFactsProviding {
 public:
  virtual ~DeviceFactsProviding() = default;

  /// The facts about the device of that name; nothing when there is none.
  [[nodiscard]] virtual std::optional<DeviceFacts> facts(const std::string& bsdName) const = 0;

  /// The whole disks at the bottom of the device of that name, through partitions and through what is stacked
  /// on other devices (volumes, RAID sets, encryption); the device itself when it is a whole disk that lies
  /// on nothing else. Virtual ones, such as an attached disk image, are among them. Empty when there is no
  /// such device, or when what it lies on cannot be told.
  [[nodiscard]] virtual std::set<std::string> wholeDisks(const std::string& bsdName) const = 0;

  /// The whole disks that carry the running system; none when it lies on no disk. Throws std::system_error
  /// when the system does not say what it lies on.
  [[nodiscard]] virtual std::set<std::string> bootWholeDisks() const = 0;

  /// The whole disks that the running system needs in a wider sense: those of bootWholeDisks, and all that
  /// carry a mounted system folder, the medium of a live system, or swap. Throws as bootWholeDisks does.
  [[nodiscard]] virtual std::set<std::string> systemWholeDisks() const = 0;
};

/// The host's own disks.
[[nodiscard]] std::shared_ptr<const DeviceFactsProviding> makeDeviceFacts();

}  // namespace molvane
