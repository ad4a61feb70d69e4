#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "Base/CaseError.hpp"
#include "Base/NSError.hpp"

namespace molvane {

/// Why a device job is refused. Each carries a text but for imageLargerThanDevice, which carries ImageSizes.
enum class DevicePolicyErrorCase {
  unknownDevice,          ///< the device's name
  notWholeDisk,           ///< the device's name
  bootDisk,               ///< the device's name
  internalDisk,           ///< the device's name
  badDestination,         ///< the path as given
  destinationExists,      ///< the standardized path
  badSource,              ///< the path as given
  sourceNotReadable,      ///< the standardized path
  imageLargerThanDevice,  ///< both sizes
  badInstaller,           ///< the path as given, or that of the tool whose signature was refused
  badTargetVolume,        ///< the path as given
  diskImage,              ///< the device's name
};

struct ImageSizes {
  std::int64_t imageBytes = 0;
  std::int64_t deviceBytes = 0;

  bool operator==(const ImageSizes&) const = default;
};

using DevicePolicyErrorPayload = std::variant<std::string, ImageSizes>;
[[nodiscard]] std::string describe(DevicePolicyErrorCase which, const DevicePolicyErrorPayload& payload);

/// A refusal of the device policy.
class DevicePolicyError : public CaseError<DevicePolicyErrorCase, DevicePolicyErrorPayload> {
 public:
  DevicePolicyError(DevicePolicyErrorCase which, std::string text)
      : CaseError(which, DevicePolicyErrorPayload(std::move(text))) {}
  explicit DevicePolicyError(ImageSizes sizes)
      : CaseError(DevicePolicyErrorCase::imageLargerThanDevice, DevicePolicyErrorPayload(sizes)) {}

  /// Of the policies' domain, with their code for device jobs.
  [[nodiscard]] NSError asNSError() const;
};

}  // namespace molvane
