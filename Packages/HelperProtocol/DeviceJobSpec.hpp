#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>

#include "Base/JsonMembers.hpp"

namespace molvane {

/// Reads a whole disk into an image file.
struct ImageDevice {
  std::string sourceBSD;        ///< BSD name of the whole disk to read, such as "disk4"
  std::string destinationPath;  ///< the image file to create
  std::uint32_t ownerUID = 0;   ///< who is to own the file; 0 stands for the calling user

  static constexpr auto members() {
    return std::tuple(JsonMember{"sourceBSD", &ImageDevice::sourceBSD},
                      JsonMember{"destinationPath", &ImageDevice::destinationPath},
                      JsonMember{"ownerUID", &ImageDevice::ownerUID});
  }
};

/// Writes an image file onto a whole disk.
struct WriteImage {
  std::string sourcePath;  ///< the image file
  std::string targetBSD;   ///< BSD name of the whole disk to overwrite
  bool verify = false;     ///< read the disk back afterwards and compare

  static constexpr auto members() {
    return std::tuple(JsonMember{"sourcePath", &WriteImage::sourcePath},
                      JsonMember{"targetBSD", &WriteImage::targetBSD},
                      JsonMember{"verify", &WriteImage::verify});
  }
};

/// Turns a volume into bootable installer media.
struct CreateInstallMedia {
  std::string installerAppPath;
  std::string targetVolumePath;  ///< where the volume is mounted

  static constexpr auto members() {
    return std::tuple(JsonMember{"installerAppPath", &CreateInstallMedia::installerAppPath},
                      JsonMember{"targetVolumePath", &CreateInstallMedia::targetVolumePath});
  }
};

/// Makes a volume the backup destination.
struct SetTimeMachineDestination {
  std::string volumePath;  ///< where the volume is mounted

  static constexpr auto members() {
    return std::tuple(JsonMember{"volumePath", &SetTimeMachineDestination::volumePath});
  }
};

/// The device job that the app asks for. It travels as a JSON object with one member, whose key names the
/// case. A plain value.
struct DeviceJobSpec {
  std::variant<ImageDevice, WriteImage, CreateInstallMedia, SetTimeMachineDestination> job;

  static constexpr auto cases() {
    return JsonCases{&DeviceJobSpec::job,
                     std::array<std::string_view, 4>{"imageDevice", "writeImage", "createInstallMedia",
                                                     "setTimeMachineDestination"}};
  }
};

}  // namespace molvane
