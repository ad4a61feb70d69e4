#pragma once

#include <cstdint>

namespace molvane {

enum class FileType {
  regular,
  directory,
  symbolicLink,
  other,  ///< devices, pipes, sockets
};

/// What a file system says about one item, links not followed unless the function that gives it says
/// otherwise.
struct FileAttributes {
  FileType type = FileType::other;
  std::int64_t size = 0;    ///< bytes; of a symbolic link the length of its text
  std::uint32_t owner = 0;  ///< user identifier
  std::uint32_t group = 0;
  std::uint32_t mode = 0;  ///< the permission bits, 07777 at most
  std::uint64_t device = 0;
  std::uint64_t inode = 0;

  /// Whether both describe the same item, whatever its names and its other attributes.
  [[nodiscard]] bool sameItem(const FileAttributes& other) const {
    return device == other.device && inode == other.inode;
  }

  bool operator==(const FileAttributes&) const = default;
};

}  // namespace molvane
