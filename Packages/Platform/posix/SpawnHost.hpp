#pragma once

#include <spawn.h>

#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// The two ends of a pipe, both close-on-exec.
struct Pipe {
  FileDescriptor readEnd;
  FileDescriptor writeEnd;
};

/// Opens a pipe whose ends are not 0, 1 or 2, even when the caller has closed those: an end there would be
/// taken for a standard stream, or be overwritten by one, when a process is started. Throws
/// std::system_error.
[[nodiscard]] Pipe openPipe();

/// Moves a descriptor that is 0, 1 or 2 to a higher number. Throws std::system_error, and then it is closed.
[[nodiscard]] FileDescriptor aboveStandardStreams(FileDescriptor descriptor);

/// Makes the spawned process start without any descriptor above 2, whether or not it is close-on-exec. Comes
/// after the actions that set up 0, 1 and 2 and after all flags of `attributes`. Throws std::system_error.
void closeOtherDescriptors(posix_spawn_file_actions_t& actions, posix_spawnattr_t& attributes);

}  // namespace molvane
