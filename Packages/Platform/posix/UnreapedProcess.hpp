#pragma once

#include <sys/types.h>

#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// A child of this program that has not been reaped.
struct UnreapedProcess {
  pid_t pid = -1;
  FileDescriptor exitWatch;  ///< polls readable once the process has ended
};

/// The child that has just been started. Throws std::system_error when it cannot be watched; then it is
/// killed and reaped.
[[nodiscard]] UnreapedProcess watched(pid_t pid);

/// Waits for a process that has ended or is about to, and takes it out of the system's table. The exit
/// status, or the number of the signal that ended it; -1 when somebody else reaped it.
int reap(pid_t pid);

}  // namespace molvane
