#pragma once

#include <string>

namespace molvane {

/// The home folder of the process's effective user as the user database has it; the environment is not asked.
[[nodiscard]] std::string homeDirectory();

/// The process's own folder, for what it keeps until the system restarts: private to its effective user. It
/// need not exist.
[[nodiscard]] std::string runtimeDirectory();

/// The process's temporary folder: private to its effective user, never one that others can write to. Clients
/// may have it cleaned, so nothing that runtimeDirectory() is for lies in it. It need not exist.
[[nodiscard]] std::string temporaryDirectory();

/// Makes sure that both folders exist, belong to the effective user and are closed to everybody else. Throws
/// std::system_error when it is not so and cannot be made so.
void ensurePrivateDirectories();

}  // namespace molvane
