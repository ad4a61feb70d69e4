#pragma once

#include <string>
#include <string_view>

#include "Base/NSError.hpp"
#include "Core/LocalAccounts.hpp"

namespace molvane::ctl {

/// Domain of the errors about accounts; the code is the position of the LocalAccountFailure plus one.
inline constexpr std::string_view kAccountErrorDomain = "com.molvane.helper.account";

/// What the helper answered instead of the accounts, in words for the person: a refusal's raw value, or the
/// words of a tool that failed, which count as `failed`.
[[nodiscard]] NSError accountError(std::string_view refusal, const LocalAccountOperation& operation);

/// What came of a change: "Account bob was created."
[[nodiscard]] std::string accountSentence(const LocalAccountOperation& operation);

/// Why the company administrator is not as it should be, from the text of its status.
[[nodiscard]] std::string companyAdminProblem(std::string_view problem, const std::string& name);

/// One account on a line: name and uid in columns, full name, and what is special about it between brackets.
[[nodiscard]] std::string accountLine(const LocalAccount& account, const LocalAccountsSnapshot& snapshot);

}  // namespace molvane::ctl
