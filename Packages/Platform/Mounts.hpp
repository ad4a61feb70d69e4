#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The mounted file systems, as the process that asks sees them. Any thread.

namespace molvane {

/// What a path lies on.
struct MountedVolume {
  std::string mountedOn;    ///< the path of the mount point
  std::string mountedFrom;  ///< what is mounted there, such as "/dev/disk5s2"; no device need have that name

  bool operator==(const MountedVolume&) const = default;
};

/// The mounted volume that holds what is at `path`, a link at its end followed; nothing when there is no such
/// path or the system does not say. What covers the path now counts, not what it covers.
[[nodiscard]] std::optional<MountedVolume> mountedVolume(const std::string& path);

}  // namespace molvane
