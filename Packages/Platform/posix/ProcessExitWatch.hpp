#pragma once

#include <sys/types.h>

#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// A close-on-exec descriptor above 2 that polls readable once the process has ended, and stays so after it
/// was reaped. `pid` must be a child of the caller that has not been reaped; it may have ended. Throws
/// std::system_error.
[[nodiscard]] FileDescriptor openProcessExitWatch(pid_t pid);

}  // namespace molvane
