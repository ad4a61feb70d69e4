#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "HelperKit/Devices/DeviceFacts.hpp"
#include "HelperKit/Devices/DevicePolicyError.hpp"
#include "Platform/CodeSigning.hpp"
#include "Platform/FileAttributes.hpp"
#include "Platform/Mounts.hpp"

namespace molvane {

/// What the device policy asks about files. Links on the way are followed. Any thread.
class DeviceFileAccess {
 public:
  virtual ~DeviceFileAccess() = default;

  /// Whether there is anything at the path; a link whose target is missing is something.
  [[nodiscard]] virtual bool itemExists(const std::string& path) const = 0;
  /// Whether there is a folder at the path, a link at its end followed.
  [[nodiscard]] virtual bool isDirectory(const std::string& path) const = 0;
  /// Whether there is a regular file at the path, a link at its end followed, that this process may execute.
  [[nodiscard]] virtual bool isExecutableFile(const std::string& path) const = 0;
  /// The attributes of what is at the path, a link at its end followed.
  [[nodiscard]] virtual std::optional<FileAttributes> targetAttributes(const std::string& path) const = 0;
  /// Whether that user may open the regular file at the path, links followed: with their own rights to it and
  /// to every folder on the way.
  [[nodiscard]] virtual bool isReadable(const std::string& path, std::uint32_t uid) const = 0;
  /// As mountedVolume of Platform/Mounts.hpp.
  [[nodiscard]] virtual std::optional<MountedVolume> mountedVolume(const std::string& path) const = 0;
};

/// The file system itself.
[[nodiscard]] std::shared_ptr<const DeviceFileAccess> makeDeviceFileAccess();

/// Says which disks, image files, installers and volumes a device job may use; whatever is not known to be
/// harmless is refused. A value; any thread may ask it.
///
/// Every operation throws DevicePolicyError and nothing else but std::bad_alloc, and changes nothing.
///
/// An answer is about the moment of asking, and paths and names can mean something else by the time they are
/// opened. So a job checks what it opened: that the image is still a regular file, opened with its user's own
/// rights, and whose size is the one returned; that the image file to create is new (O_EXCL), its folder was
/// reached without leaving the allowed place and its user may write there; and that the device is a block
/// device of the size in the facts, opened exclusively, so that a disk in use is refused whatever the policy
/// said.
struct DevicePolicy {
  struct ImageSource {
    std::string path;       ///< standardized
    std::int64_t size = 0;  ///< bytes

    bool operator==(const ImageSource&) const = default;
  };

  std::shared_ptr<const DeviceFactsProviding> facts;
  std::set<std::string> bootDisks;  ///< the whole disks that carry the running system
  std::shared_ptr<const DeviceFileAccess> fileManager;
  std::shared_ptr<CodeSigning> codeSigning;
  std::set<std::string> systemDisks = {};  ///< further whole disks that must not be overwritten: the
                                           ///< running system needs them

  /// The facts about a whole disk that may be read. Throws unknownDevice, notWholeDisk, bootDisk.
  [[nodiscard]] DeviceFacts validateSourceDevice(const std::string& bsdName) const;

  /// The facts about a whole disk that may be overwritten. Throws as validateSourceDevice does, bootDisk also
  /// for one of systemDisks, and internalDisk, diskImage.
  [[nodiscard]] DeviceFacts validateTargetDevice(const std::string& bsdName) const;

  /// The standardized path of an image file that may be created. Throws badDestination, destinationExists.
  [[nodiscard]] std::string validateImageDestination(const std::string& path) const;

  /// The image that `uid` may write to a device of `deviceSize` bytes. Throws badSource, sourceNotReadable,
  /// imageLargerThanDevice.
  [[nodiscard]] ImageSource validateImageSource(const std::string& path, std::uint32_t uid,
                                                std::int64_t deviceSize) const;

  /// The path of the tool that makes install media, in the installer at `path`. Throws badInstaller.
  [[nodiscard]] std::string validateInstaller(const std::string& path) const;

  /// The standardized path of a mounted volume that may be given up to a tool. Throws badTargetVolume, and
  /// for the first disk below it that is refused unknownDevice, notWholeDisk, bootDisk, internalDisk or
  /// diskImage.
  [[nodiscard]] std::string validateTargetVolume(const std::string& path) const;

  /// Throws badInstaller unless the code at `path` is Apple's own.
  void requireAppleSignature(const std::string& path) const;
};

/// The place that image files may be created below in which a validated destination lies, without a slash at
/// the end: where the walk to the destination's folder begins. Throws badDestination for another path.
[[nodiscard]] std::string imageDestinationPlace(const std::string& standardPath);

/// Makes a policy from what is true now. A job's start asks for a new one: a disk that became part of the
/// running system since the last one is then known to be.
using DevicePolicyFactory = std::function<DevicePolicy()>;

/// The policy over the host's own disks, files and signatures. Throws std::system_error when the host does
/// not say what the running system lies on: without that no policy is safe.
[[nodiscard]] DevicePolicy makeDevicePolicy();

}  // namespace molvane
