#include "Platform/linux/LoopDevices.hpp"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <system_error>

#include "Base/NSError.hpp"
#include "Platform/SafeFile.hpp"

namespace molvane {
namespace {

struct LoopDevice {
  std::string node;
  dev_t number = 0;
  dev_t shownDisk = 0;  // the whole disk that it shows a part of; 0 for a file
};

// From "MAJOR:MINOR\n".
std::optional<dev_t> numberIn(const std::string& file) {
  constexpr std::size_t kPage = 4096;
  const std::string text = readSmallFile(file, kPage).value_or("");
  unsigned major = 0;
  unsigned minor = 0;
  const char* const end = text.data() + text.size();
  const auto [colon, badMajor] = std::from_chars(text.data(), end, major);
  if (badMajor != std::errc() || colon == end || *colon != ':') return std::nullopt;
  const auto [rest, badMinor] = std::from_chars(colon + 1, end, minor);
  if (badMinor != std::errc()) return std::nullopt;
  return makedev(major, minor);
}

dev_t wholeDiskOf(dev_t device) {
  const std::string folder =
      "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
  std::error_code missing;
  if (!std::filesystem::exists(folder + "/partition", missing)) return device;
  return numberIn(folder + "/../dev").value_or(device);
}

// Nothing when the loop device shows nothing by now, or has no node by which it can be asked. One that cannot
// be asked, if only for lack of a descriptor, may show the disk.
std::optional<LoopDevice> loopDeviceNamed(const std::string& name) {
  const std::string node = "/dev/" + name;
  const FileDescriptor device(::open(node.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!device && errno != ENOENT && errno != ENXIO && errno != ENODEV) throwErrno("open " + node);
  struct stat status {};
  loop_info64 info{};
  if (!device || ::fstat(device.get(), &status) != 0 || !S_ISBLK(status.st_mode) ||
      ::ioctl(device.get(), LOOP_GET_STATUS64, &info) != 0) {
    return std::nullopt;
  }
  return LoopDevice{node, status.st_rdev, wholeDiskOf(info.lo_rdevice)};
}

std::vector<LoopDevice> loopDevices() {
  std::vector<LoopDevice> found;
  for (const auto& entry : std::filesystem::directory_iterator("/sys/class/block")) {
    std::error_code missing;
    if (!std::filesystem::exists(entry.path() / "loop", missing)) continue;
    if (std::optional<LoopDevice> loop = loopDeviceNamed(entry.path().filename()))
      found.push_back(*std::move(loop));
  }
  return found;
}

}  // namespace

std::vector<FileDescriptor> claimLoopDevicesOver(dev_t number) {
  const std::vector<LoopDevice> loops = loopDevices();
  std::vector<FileDescriptor> claims;
  std::set<dev_t> claimed = {number};
  // Each round finds the loop devices over those of the round before.
  for (std::size_t before = 0; before != claimed.size();) {
    before = claimed.size();
    for (const LoopDevice& loop : loops) {
      if (claimed.count(loop.shownDisk) == 0 || !claimed.insert(loop.number).second) continue;
      claims.emplace_back(::open(loop.node.c_str(), O_RDONLY | O_EXCL | O_CLOEXEC | O_NONBLOCK));
      if (!claims.back()) throwErrno("claim " + loop.node);
    }
  }
  return claims;
}

}  // namespace molvane
