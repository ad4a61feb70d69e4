#include "HelperProtocol/DeviceJobSpec.hpp"

#include <string_view>

namespace molvane {
namespace {

constexpr std::string_view kImageDevice = "imageDevice";
constexpr std::string_view kWriteImage = "writeImage";
constexpr std::string_view kCreateInstallMedia = "createInstallMedia";
constexpr std::string_view kSetTimeMachineDestination = "setTimeMachineDestination";

template <typename Job>
void readJob(const JsonObjectReader& object, std::string_view which, DeviceJobSpec& spec) {
  object.read(which, spec.job.emplace<Job>());
}

}  // namespace

void fromJson(const JsonValue& json, ImageDevice& job) {
  const JsonObjectReader object(json);
  object.read("sourceBSD", job.sourceBSD);
  object.read("destinationPath", job.destinationPath);
  object.read("ownerUID", job.ownerUID);
}

void fromJson(const JsonValue& json, WriteImage& job) {
  const JsonObjectReader object(json);
  object.read("sourcePath", job.sourcePath);
  object.read("targetBSD", job.targetBSD);
  object.read("verify", job.verify);
}

void fromJson(const JsonValue& json, CreateInstallMedia& job) {
  const JsonObjectReader object(json);
  object.read("installerAppPath", job.installerAppPath);
  object.read("targetVolumePath", job.targetVolumePath);
}

void fromJson(const JsonValue& json, SetTimeMachineDestination& job) {
  JsonObjectReader(json).read("volumePath", job.volumePath);
}

JsonValue toJson(const ImageDevice& job) {
  return JsonObjectWriter()
      .add("sourceBSD", job.sourceBSD)
      .add("destinationPath", job.destinationPath)
      .add("ownerUID", job.ownerUID)
      .take();
}

JsonValue toJson(const WriteImage& job) {
  return JsonObjectWriter()
      .add("sourcePath", job.sourcePath)
      .add("targetBSD", job.targetBSD)
      .add("verify", job.verify)
      .take();
}

JsonValue toJson(const CreateInstallMedia& job) {
  return JsonObjectWriter()
      .add("installerAppPath", job.installerAppPath)
      .add("targetVolumePath", job.targetVolumePath)
      .take();
}

JsonValue toJson(const SetTimeMachineDestination& job) {
  return JsonObjectWriter().add("volumePath", job.volumePath).take();
}

void fromJson(const JsonValue& json, DeviceJobSpec& spec) {
  const JsonObjectReader object(json);
  const std::string_view which =
      object.onlyCase({kImageDevice, kWriteImage, kCreateInstallMedia, kSetTimeMachineDestination});
  if (which == kImageDevice) {
    readJob<ImageDevice>(object, which, spec);
  } else if (which == kWriteImage) {
    readJob<WriteImage>(object, which, spec);
  } else if (which == kCreateInstallMedia) {
    readJob<CreateInstallMedia>(object, which, spec);
  } else {
    readJob<SetTimeMachineDestination>(object, which, spec);
  }
}

JsonValue toJson(const DeviceJobSpec& spec) {
  constexpr std::string_view kKeys[] = {kImageDevice, kWriteImage, kCreateInstallMedia,
                                        kSetTimeMachineDestination};
  const std::string key(kKeys[spec.job.index()]);
  return std::visit([&](const auto& job) { return JsonObjectWriter().add(key, job).take(); }, spec.job);
}

}  // namespace molvane
