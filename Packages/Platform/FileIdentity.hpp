#pragma once

#include <sys/stat.h>

#include <cstdint>

namespace molvane {

/// Which file it is and in which state. Two equal identities taken one after the other mean that the content
/// has not been changed in between, as far as the file system's time stamps are fine enough to tell.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modifiedNanoseconds = 0;       ///< since 1970
  std::int64_t statusChangedNanoseconds = 0;  ///< since 1970; cannot be set by who writes the file

  bool operator==(const FileIdentity&) const = default;
};

[[nodiscard]] FileIdentity fileIdentity(const struct stat& status) noexcept;

}  // namespace molvane
