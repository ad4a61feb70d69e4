#include "HelperKit/Devices/DevicePolicy.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <system_error>
#include <utility>

#include "Base/Ascii.hpp"
#include "Base/PathText.hpp"
#include "Platform/FileManager.hpp"
#include "Platform/StandardPath.hpp"
#include "Platform/StreamedFile.hpp"
#include "Platform/UserRights.hpp"

namespace molvane {
namespace {

using Case = DevicePolicyErrorCase;

constexpr std::array<std::string_view, 3> kImageDestinationExtensions = {"dmg", "img", "raw"};
constexpr std::array<std::string_view, 5> kImageSourceExtensions = {"img", "iso", "raw", "dmg", "cdr"};
constexpr std::array<std::string_view, 6> kDestinationPlaces = {
    "/Users/", "/Volumes/", "/tmp/", "/private/tmp/", "/var/folders/", "/private/var/folders/"};
constexpr std::uint32_t kReadableByOthers = 0004;

template <std::size_t Count>
bool hasExtension(const std::string& path, const std::array<std::string_view, Count>& allowed) {
  // ASCII is enough: no letter beyond it has an allowed extension as its small form.
  const std::string extension = asciiLowercased(pathExtension(path));
  return std::find(allowed.begin(), allowed.end(), extension) != allowed.end();
}

bool goesUp(std::string_view path) { return path.find("/../") != std::string_view::npos; }

bool startsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

bool endsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Empty when the path lies in no allowed place.
std::string_view placeOf(std::string_view path) {
  const auto* const found = std::find_if(kDestinationPlaces.begin(), kDestinationPlaces.end(),
                                         [&](std::string_view place) { return startsWith(path, place); });
  return found == kDestinationPlaces.end() ? std::string_view() : found->substr(0, found->size() - 1);
}

// The system would take a path with a NUL for another, shorter one.
std::string standardized(const std::string& path, Case refusal) {
  if (path.find('\0') != std::string::npos) throw DevicePolicyError(refusal, path);
  return standardizingPathByName(path);
}

class FileSystem final : public DeviceFileAccess {
 public:
  [[nodiscard]] bool itemExists(const std::string& path) const override {
    return FileManager::findAttributes(path).has_value();
  }
  [[nodiscard]] bool isDirectory(const std::string& path) const override {
    return FileManager::isDirectory(path);
  }
  [[nodiscard]] bool isExecutableFile(const std::string& path) const override {
    return FileManager::isExecutableFile(path);
  }
  [[nodiscard]] std::optional<FileAttributes> targetAttributes(const std::string& path) const override {
    return FileManager::findTargetAttributes(path);
  }
  [[nodiscard]] bool isReadable(const std::string& path, std::uint32_t uid) const override {
    try {
      withRightsOf(uid, [&] { (void)openStreamedFile(path); });
    } catch (const std::system_error&) {
      return false;
    }
    return true;
  }
  [[nodiscard]] std::optional<MountedVolume> mountedVolume(const std::string& path) const override {
    return molvane::mountedVolume(path);
  }
};

}  // namespace

DeviceFacts DevicePolicy::validateSourceDevice(const std::string& bsdName) const {
  std::optional<DeviceFacts> found = facts->facts(bsdName);
  if (!found) throw DevicePolicyError(Case::unknownDevice, bsdName);
  if (!found->isWhole) throw DevicePolicyError(Case::notWholeDisk, bsdName);
  if (bootDisks.count(bsdName) != 0) throw DevicePolicyError(Case::bootDisk, bsdName);
  return *std::move(found);
}

DeviceFacts DevicePolicy::validateTargetDevice(const std::string& bsdName) const {
  DeviceFacts found = validateSourceDevice(bsdName);
  if (systemDisks.count(bsdName) != 0) throw DevicePolicyError(Case::bootDisk, bsdName);
  if (found.isInternal) throw DevicePolicyError(Case::internalDisk, bsdName);
  if (found.isVirtual) throw DevicePolicyError(Case::diskImage, bsdName);
  return found;
}

std::string DevicePolicy::validateImageDestination(const std::string& path) const {
  std::string standard = standardized(path, Case::badDestination);
  if (placeOf(standard).empty() || !hasExtension(standard, kImageDestinationExtensions) || goesUp(standard) ||
      !fileManager->isDirectory(deletingLastPathComponent(standard))) {
    throw DevicePolicyError(Case::badDestination, path);
  }
  if (fileManager->itemExists(standard)) throw DevicePolicyError(Case::destinationExists, standard);
  return standard;
}

DevicePolicy::ImageSource DevicePolicy::validateImageSource(const std::string& path, std::uint32_t uid,
                                                            std::int64_t deviceSize) const {
  std::string standard = standardized(path, Case::badSource);
  if (!isAbsolutePath(standard) || !hasExtension(standard, kImageSourceExtensions) || goesUp(standard)) {
    throw DevicePolicyError(Case::badSource, path);
  }
  const std::optional<FileAttributes> image = fileManager->targetAttributes(standard);
  if (!image || image->type != FileType::regular) throw DevicePolicyError(Case::badSource, path);
  // Not the group: the helper must not read for a person what they could not read as owner or as anyone. And
  // not by these bits alone: a folder on the way may be closed to them.
  if ((image->owner != uid && (image->mode & kReadableByOthers) == 0) ||
      !fileManager->isReadable(standard, uid)) {
    throw DevicePolicyError(Case::sourceNotReadable, standard);
  }
  if (deviceSize < image->size) throw DevicePolicyError(ImageSizes{image->size, deviceSize});
  return {std::move(standard), image->size};
}

std::string DevicePolicy::validateInstaller(const std::string& path) const {
  const std::string standard = standardized(path, Case::badInstaller);
  const std::string name = lastPathComponent(standard);
  if (!startsWith(standard, "/Applications/") || !startsWith(name, "Install macOS") ||
      !endsWith(name, ".app") || goesUp(standard)) {
    throw DevicePolicyError(Case::badInstaller, path);
  }
  std::string tool = standard + "/Contents/Resources/createinstallmedia";
  if (!fileManager->isExecutableFile(tool)) throw DevicePolicyError(Case::badInstaller, path);
  requireAppleSignature(tool);
  return tool;
}

std::string DevicePolicy::validateTargetVolume(const std::string& path) const {
  constexpr std::string_view kVolumes = "/Volumes/";
  std::string standard = standardized(path, Case::badTargetVolume);
  const bool directlyBelow = startsWith(standard, kVolumes) && standard.size() > kVolumes.size() &&
                             standard.find('/', kVolumes.size()) == std::string::npos;
  if (!directlyBelow) throw DevicePolicyError(Case::badTargetVolume, path);
  const std::optional<MountedVolume> volume = fileManager->mountedVolume(standard);
  if (!volume || volume->mountedOn != standard) throw DevicePolicyError(Case::badTargetVolume, path);

  const std::set<std::string> disks = facts->wholeDisks(lastPathComponent(volume->mountedFrom));
  if (disks.empty()) throw DevicePolicyError(Case::badTargetVolume, path);
  for (const std::string& disk : disks) (void)validateTargetDevice(disk);
  return standard;
}

void DevicePolicy::requireAppleSignature(const std::string& path) const {
  if (!codeSigning->checkFile(path, "anchor apple").satisfied()) {
    throw DevicePolicyError(Case::badInstaller, path);
  }
}

std::string imageDestinationPlace(const std::string& standardPath) {
  const std::string_view place = placeOf(standardPath);
  if (place.empty()) throw DevicePolicyError(Case::badDestination, standardPath);
  return std::string(place);
}

std::shared_ptr<const DeviceFileAccess> makeDeviceFileAccess() { return std::make_shared<FileSystem>(); }

DevicePolicy makeDevicePolicy() {
  std::shared_ptr<const DeviceFactsProviding> facts = makeDeviceFacts();
  std::set<std::string> bootDisks = facts->bootWholeDisks();
  std::set<std::string> systemDisks = facts->systemWholeDisks();
  return {std::move(facts), std::move(bootDisks), makeDeviceFileAccess(), makeCodeSigning(),
          std::move(systemDisks)};
}

}  // namespace molvane
