#pragma once

#include <string>

namespace molvane::ctl {

/// A look at an image file before it is written onto a disk.
struct ImageLook {
  bool missing = false;
  /// Why its bytes are hardly those of a disk, as in "is compressed with xz"; empty where nothing tells so.
  std::string oddity;
};

/// Looks with the person's own rights, and opens nothing but regular files. An image that cannot be looked at
/// has nothing odd: the helper decides about it. Throws std::system_error when the program's group cannot be
/// put aside.
[[nodiscard]] ImageLook lookAtImage(const std::string& path);

}  // namespace molvane::ctl
