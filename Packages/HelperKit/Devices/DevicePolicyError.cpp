#include "HelperKit/Devices/DevicePolicyError.hpp"

#include "HelperProtocol/HelperErrorDomains.hpp"

namespace molvane {
namespace {

constexpr std::int64_t kDeviceJobCode = 10;

std::string textIn(const DevicePolicyErrorPayload& payload) {
  const auto* text = std::get_if<std::string>(&payload);
  return text == nullptr ? std::string() : *text;
}

std::string describe(const DevicePolicyErrorPayload& payload) {
  const auto* sizes = std::get_if<ImageSizes>(&payload);
  if (sizes == nullptr) return "Refused";
  return "Image (" + std::to_string(sizes->imageBytes) + " bytes) is larger than the device (" +
         std::to_string(sizes->deviceBytes) + " bytes).";
}

}  // namespace

std::string describe(DevicePolicyErrorCase which, const DevicePolicyErrorPayload& payload) {
  const std::string text = textIn(payload);
  switch (which) {
    case DevicePolicyErrorCase::unknownDevice:
      return "Unknown device: " + text;
    case DevicePolicyErrorCase::notWholeDisk:
      return text + " is a partition; choose the whole disk.";
    case DevicePolicyErrorCase::bootDisk:
      return text + " backs the running system. Refused.";
    case DevicePolicyErrorCase::internalDisk:
      return text + " is an internal disk. Refused.";
    case DevicePolicyErrorCase::badDestination:
      return "Destination not allowed: " + text + " (use a .dmg/.img/.raw under /Users, /Volumes or /tmp).";
    case DevicePolicyErrorCase::destinationExists:
      return "Destination already exists: " + text;
    case DevicePolicyErrorCase::badSource:
      return "Image not allowed: " + text + " (.img/.iso/.raw/.dmg/.cdr)";
    case DevicePolicyErrorCase::sourceNotReadable:
      return "Image is not readable by your user: " + text;
    case DevicePolicyErrorCase::imageLargerThanDevice:
      return describe(payload);
    case DevicePolicyErrorCase::badInstaller:
      return "Not an Apple-signed macOS installer: " + text;
    case DevicePolicyErrorCase::badTargetVolume:
      return "Target must be a mounted volume on an external disk: " + text;
    case DevicePolicyErrorCase::diskImage:
      return text + " is an attached disk image, not a drive. Refused.";
  }
  return "Refused";
}

NSError DevicePolicyError::asNSError() const {
  return {std::string(kPolicyErrorDomain), kDeviceJobCode, errorDescription()};
}

}  // namespace molvane
