#pragma once

#include <cstddef>
#include <cstdint>

#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// How many entries of a tree are examined at most.
inline constexpr std::size_t kMostEntriesMeasured = 20'000;

/// The logical size in bytes of the regular files below a folder.
///
/// At most `limit` entries are examined; a larger tree yields the sum of those, without a mark. Which ones
/// they are is the file system's choice. Hidden entries (a leading dot) are neither visited nor counted.
/// Packages are counted but not looked into; links, devices and other special files add nothing and are not
/// followed. A folder that cannot be read and a file that has vanished are passed over.
///
/// Works relative to the held folder and follows no link below it. A total that does not fit ends the
/// process. Other threads help with a large tree; they are done when this returns or throws. Throws
/// std::system_error when the folder itself cannot be read.
[[nodiscard]] std::int64_t logicalSize(FileDescriptor folder, std::size_t limit = kMostEntriesMeasured);

}  // namespace molvane
