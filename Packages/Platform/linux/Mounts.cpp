#include "Platform/Mounts.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <vector>

#include "Platform/linux/MountTable.hpp"

namespace molvane {
namespace {

std::optional<std::uint64_t> mountIdentifier(const std::string& path) {
  struct statx status {};
  if (path.find('\0') != std::string::npos ||
      statx(AT_FDCWD, path.c_str(), AT_STATX_DONT_SYNC, STATX_MNT_ID, &status) != 0 ||
      (status.stx_mask & STATX_MNT_ID) == 0) {
    return std::nullopt;
  }
  return status.stx_mnt_id;
}

// These have a device number of their own for each mount, and their source is a disk that the kernel opened.
bool hasNumberOfItsOwn(const Mount& mount) { return mount.major == 0 && mount.type == "btrfs"; }

std::string deviceOf(const Mount& mount) {
  std::error_code error;
  const std::string device = std::filesystem::canonical(mount.source, error).string();
  struct stat status {};
  if (mount.source.substr(0, 1) != "/" || error || stat(device.c_str(), &status) != 0 ||
      !S_ISBLK(status.st_mode)) {
    return "";
  }
  const bool isIt = status.st_rdev == makedev(mount.major, mount.minor);
  return isIt || hasNumberOfItsOwn(mount) ? device : "";
}

}  // namespace

std::optional<MountedVolume> mountedVolume(const std::string& path) try {
  const std::optional<std::uint64_t> identifier = mountIdentifier(path);
  if (!identifier) return std::nullopt;
  const std::vector<Mount> mounts = readMountTable();
  const auto found = std::find_if(mounts.begin(), mounts.end(),
                                  [&](const Mount& mount) { return mount.identifier == *identifier; });
  if (found == mounts.end()) return std::nullopt;
  return MountedVolume{found->mountPoint, deviceOf(*found)};
} catch (const std::system_error&) {
  return std::nullopt;
}

}  // namespace molvane
