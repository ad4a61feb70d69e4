#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "Platform/FileDescriptor.hpp"
#include "Platform/RawDevice.hpp"

// Large files that are read or written once from one end to the other. They are kept from pushing everything
// else out of the page cache.

namespace molvane {

/// Opens the regular file at `path` for reading, a link followed unless it leads to something that a process
/// has open (ELOOP). Nothing but a regular file is ever opened, whatever takes the path's place meanwhile.
/// Throws std::system_error, EINVAL for anything else.
[[nodiscard]] FileDescriptor openStreamedFile(const std::string& path);

/// Reads until `bytes` is full or the file ends. What was not in the cache before does not stay there; what
/// was, does.
[[nodiscard]] IoResult readStreamed(const FileDescriptor& file, std::span<std::byte> bytes,
                                    std::int64_t offset);

/// Asks for the range to be written out and does not wait for it.
void beginWritingOut(const FileDescriptor& file, std::int64_t offset, std::int64_t length);

/// Waits until the range is written out and drops it from the cache. Not a sync: what fails here is
/// reported by the next one.
void writeOutAndForget(const FileDescriptor& file, std::int64_t offset, std::int64_t length);

}  // namespace molvane
