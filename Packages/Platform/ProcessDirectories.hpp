#pragma once

#include <string>

namespace molvane {

/// The home folder of the process's effective user as the user database has it; the environment is not asked.
[[nodiscard]] std::string homeDirectory();

/// The process's temporary folder: private to its effective user, never one that others can write to. It need
/// not exist.
[[nodiscard]] std::string temporaryDirectory();

/// Makes sure that the temporary folder exists, belongs to the effective user and is closed to everybody
/// else. Throws std::system_error when it is not so and cannot be made so.
void ensureTemporaryDirectory();

}  // namespace molvane
