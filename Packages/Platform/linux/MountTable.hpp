#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace molvane {

/// One line of the kernel's table of mounts.
struct Mount {
  std::uint64_t identifier = 0;
  std::uint32_t major = 0;  ///< 0: the file system's device number is no block device's
  std::uint32_t minor = 0;
  std::string mountPoint;
  std::string type;                      ///< of the file system, such as "ext4"
  std::string source;                    ///< as whoever mounted it called it
  std::vector<std::string> layers = {};  ///< of an overlay: the folders that it shows, as they were called
                                         ///< when it was mounted

  bool operator==(const Mount&) const = default;
};

/// The mounts in the order of the text: of two on one path, the later covers the earlier. Texts come back
/// without the kernel's octal escapes. A line that is none of the kernel's is left out.
[[nodiscard]] std::vector<Mount> parseMountTable(std::string_view text);

/// The calling thread's own.
inline constexpr const char* kMountTablePath = "/proc/thread-self/mountinfo";

/// The table in that file. Throws std::system_error when it cannot be read or is larger than 16 MiB.
[[nodiscard]] std::vector<Mount> readMountTable(const std::string& path = kMountTablePath);

/// The paths of the devices and files that the system swaps to, from the kernel's table in that file; none
/// where the kernel has no such table. Throws as readMountTable does.
[[nodiscard]] std::vector<std::string> readSwapTable(const std::string& path = "/proc/swaps");

}  // namespace molvane
