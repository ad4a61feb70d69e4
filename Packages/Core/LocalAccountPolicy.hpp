#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Core/LocalAccounts.hpp"

/// Which changes of local accounts are allowed. Pure: looks at what it is given and touches nothing. The app
/// greys out choices with the same rules that the helper enforces. Any thread.
///
/// Texts are measured in characters as a person counts them, and names are equal when they are the same
/// characters. Everything here throws std::runtime_error when a text beyond ASCII needs the Unicode library
/// and that is missing.
namespace molvane::LocalAccountPolicy {

// In characters.
inline constexpr std::size_t minimumPassword = 8;
inline constexpr std::size_t maximumPassword = 128;
inline constexpr std::size_t maximumName = 31;
inline constexpr std::size_t maximumFullName = 64;

/// The uid of the first account that is not the system's own.
inline constexpr std::int64_t firstUserID = 501;

/// Short names that are never created.
inline constexpr std::array<std::string_view, 9> reserved = {"root",  "daemon", "nobody", "admin", "staff",
                                                             "wheel", "guest",  "shared", "users"};

/// 1 to 31 of a-z, 0-9, "_", "-" and ".", the first of them a letter; not reserved.
[[nodiscard]] bool isValidName(std::string_view name);

/// Not only white space, at most 64 characters, no line break.
[[nodiscard]] bool isValidFullName(std::string_view fullName);

/// 8 to 128 characters without line break and NUL. Any kind of character will do.
[[nodiscard]] bool isValidPassword(std::string_view password);

/// A short name for a person's name: its letters and digits in lower case and without accents, at most 20.
/// May be empty or no valid name.
[[nodiscard]] std::string suggestedName(std::string_view fullName);

/// Throws the LocalAccountFailure of the first rule that the operation breaks: any but `failed`. `company` is
/// the short name of the company administrator, if there is one.
void check(const LocalAccountOperation& operation, const LocalAccountsSnapshot& snapshot,
           const std::optional<std::string>& company);

/// Throws LocalAccountFailure badAdmin unless the proof names an enabled administrator of the snapshot who
/// can unlock FileVault, is not `notFor`, and has some password. Whether the password is right is for the
/// system's tool to say.
void checkProof(const AccountAdminProof& proof, const LocalAccountsSnapshot& snapshot,
                const std::optional<std::string>& notFor);

/// Throws LocalAccountFailure lastAdmin when `target` is an administrator and no other enabled, non-system
/// administrator remains; when `target` can unlock FileVault, one who can do so as well must remain.
void keepsAnAdmin(const LocalAccount& target, const std::vector<LocalAccount>& accounts);

}  // namespace molvane::LocalAccountPolicy
