#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Core/LocalAccounts.hpp"
#include "Core/MaintenanceTask.hpp"

/// Where the machine's accounts are read: the tools that list them, which anybody may run, and what their
/// answers mean. Runs nothing itself. Any thread.
namespace molvane::AccountDirectory {

/// How long to wait for one of the tools, in seconds.
inline constexpr double timeout = 30;

/// Prints all users' records as a property list.
[[nodiscard]] MaintenanceTask::Command usersCommand();
/// Prints the record of the administrators' group as a property list.
[[nodiscard]] MaintenanceTask::Command adminsCommand();
/// Ends with status 0 when FileVault is on.
[[nodiscard]] MaintenanceTask::Command fileVaultCommand();

/// The accounts that the two property lists describe, ordered by user identifier; system accounts (below 501)
/// are left out. Empty where `users` is something else or beyond 20 MiB; nobody is an administrator where
/// `admins` is. Throws std::runtime_error when a name beyond ASCII needs the Unicode library and that is
/// missing.
[[nodiscard]] std::vector<LocalAccount> accounts(std::string_view users, std::string_view admins);

/// The same, but nothing where either of the two is something else. Throws as accounts does.
[[nodiscard]] std::optional<std::vector<LocalAccount>> completeAccounts(std::string_view users,
                                                                        std::string_view admins);

}  // namespace molvane::AccountDirectory
