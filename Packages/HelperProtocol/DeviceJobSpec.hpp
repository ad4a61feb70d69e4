#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "Base/JsonCoding.hpp"

namespace molvane {

/// Reads a whole disk into an image file.
struct ImageDevice {
  std::string sourceBSD;        ///< BSD name of the whole disk to read, such as "disk4"
  std::string destinationPath;  ///< the image file to create
  std::uint32_t ownerUID = 0;   ///< who is to own the file; 0 stands for the calling user
  bool operator==(const ImageDevice&) const = default;
};

/// Writes an image file onto a whole disk.
struct WriteImage {
  std::string sourcePath;  ///< the image file
  std::string targetBSD;   ///< BSD name of the whole disk to overwrite
  bool verify = false;     ///< read the disk back afterwards and compare
  bool operator==(const WriteImage&) const = default;
};

/// Turns a volume into bootable installer media.
struct CreateInstallMedia {
  std::string installerAppPath;
  std::string targetVolumePath;  ///< where the volume is mounted
  bool operator==(const CreateInstallMedia&) const = default;
};

/// Makes a volume the backup destination.
struct SetTimeMachineDestination {
  std::string volumePath;  ///< where the volume is mounted
  bool operator==(const SetTimeMachineDestination&) const = default;
};

/// The device job that the app asks for. It travels as a JSON object with one member, whose key names the
/// case. A plain value.
struct DeviceJobSpec {
  std::variant<ImageDevice, WriteImage, CreateInstallMedia, SetTimeMachineDestination> job;

  bool operator==(const DeviceJobSpec&) const = default;
};

/// Throws a DecodingError. A document that names no case, or several, is refused as typeMismatch, "Invalid
/// number of keys found, expected one."; a member that a case does not know is passed over.
void fromJson(const JsonValue& json, DeviceJobSpec& spec);
[[nodiscard]] JsonValue toJson(const DeviceJobSpec& spec);

}  // namespace molvane
