#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "HelperKit/Devices/DeviceFacts.hpp"

namespace molvane {

/// One block device as the kernel describes it in sysfs. Every function reads afresh; what cannot be read
/// counts as absent. Nothing outside the sysfs folder is read, whatever its links say. Throws nothing but
/// std::bad_alloc.
class BlockDevice {
 public:
  /// The device of that name, a disk or a partition; nothing when there is none, or when it is only a path to
  /// one that has a name of its own.
  [[nodiscard]] static std::optional<BlockDevice> find(const std::string& sysfs, const std::string& name);

  /// The names of all of them, hidden ones too; no more than 65,536.
  [[nodiscard]] static std::vector<std::string> allNames(const std::string& sysfs);

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] DeviceFacts facts() const;
  [[nodiscard]] bool isPartition() const;
  /// The name of the disk that a partition is a part of.
  [[nodiscard]] std::string parentName() const;
  /// The names of the devices that this one is stacked on; nothing when that cannot be told.
  [[nodiscard]] std::optional<std::vector<std::string>> slaves() const;
  /// Of a loop device: the path of the file or device that it shows; empty for others.
  [[nodiscard]] std::string backingFile() const;
  /// "MAJOR:MINOR"
  [[nodiscard]] std::string number() const;
  /// The name that the device-mapper gives it; empty for others.
  [[nodiscard]] std::string mapperName() const;

 private:
  BlockDevice(std::string sysfs, std::string name, std::string folder)
      : sysfs_(std::move(sysfs)), name_(std::move(name)), folder_(std::move(folder)) {}

  // The folder of the whole disk.
  [[nodiscard]] std::string diskFolder() const;

  std::string sysfs_;  // no link in it
  std::string name_;
  std::string folder_;  // below sysfs_, no link in it
};

}  // namespace molvane
