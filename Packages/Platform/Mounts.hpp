#pragma once

#include <optional>
#include <string>

namespace molvane {

/// What a path lies on.
struct MountedVolume {
  std::string mountedOn;    ///< the path of the mount point
  std::string mountedFrom;  ///< the path of the local disk or partition that is mounted there, links
                            ///< resolved; empty when it is none or that cannot be told

  bool operator==(const MountedVolume&) const = default;
};

/// The mounted volume that holds what is at `path`, a link at its end followed; nothing when there is no such
/// path or the system does not say. What a mount says about its source is believed only when the device of
/// that name is the one that is mounted: anybody may mount something of their own that calls itself a disk.
[[nodiscard]] std::optional<MountedVolume> mountedVolume(const std::string& path);

}  // namespace molvane
