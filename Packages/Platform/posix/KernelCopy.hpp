#pragma once

#include <sys/types.h>

#include <cstddef>

namespace molvane {

/// Has the kernel copy up to `most` bytes from where one descriptor stands to where the other does, and moves
/// both. The number of bytes; 0 when it copies nothing here, be it at the end of the file or because it
/// cannot (the caller then reads and writes); -1 with errno set when reading or writing failed.
[[nodiscard]] ssize_t kernelCopy(int from, int to, std::size_t most) noexcept;

/// Copies the extended attributes of one open file or folder to another, as far as the receiving file system
/// takes them. Best effort: it never fails.
void copyExtendedAttributes(int from, int to);

}  // namespace molvane
