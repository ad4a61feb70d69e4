#pragma once

#include <string_view>

namespace molvane {

/// Errors of the service itself; codes 1 to 8.
inline constexpr std::string_view kHelperErrorDomain = "com.molvane.helper";

/// Refusals of a policy: code 10 for device jobs, 11 for application removal, 12 for package installation, 13
/// for application installation.
inline constexpr std::string_view kPolicyErrorDomain = "com.molvane.helper.policy";

}  // namespace molvane
