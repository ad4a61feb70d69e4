#pragma once

#include <cstddef>
#include <cstdint>

#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// The most that is copied in one step, in bytes.
inline constexpr std::size_t kCopyChunk = std::size_t{4} << 20U;

/// Copies the bytes of a regular file from where `from` stands until a read returns none, and returns their
/// number. The file system is asked to do the work itself, so that where it can share blocks nothing is read.
///
/// Throws std::system_error: EFBIG as soon as there are more than `mostBytes`, so that a file which somebody
/// keeps on growing comes to an end; otherwise the errno of the failed read or write. What has been written
/// by then stays. Does not sync. Cuts are not seen: a file that shrinks meanwhile is copied as far as it is
/// there.
std::uint64_t copyToEnd(const FileDescriptor& from, const FileDescriptor& to, std::uint64_t mostBytes);

/// Returns when all that had been written to the file system that holds the file or folder has reached the
/// disk. Throws std::system_error when some of it cannot.
void syncFileSystem(const FileDescriptor& item);

}  // namespace molvane
