#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/NSError.hpp"

// An error reply carries a name and, as its first argument, the localized description. The name tells domain
// and code:
//
//   com.molvane.helper.UnknownJob           the helper's own refusals, by case
//   com.molvane.helper.policy.DeviceJob     the policies' refusals, by policy
//   System.Error.EACCES                     the operating system's errors, by errno name
//   com.molvane.helper.OtherError           anything else; two more arguments say domain and code
//
// Every error comes out at the other end as it went in; only what no text on the wire can hold is replaced
// (wireText).
namespace molvane::dbus {

inline constexpr std::string_view kOtherErrorName = "com.molvane.helper.OtherError";

/// Which error an NSError is, without its words.
struct ErrorIdentity {
  std::string domain;
  std::int64_t code = 0;

  bool operator==(const ErrorIdentity&) const = default;
};

/// The name under which an error travels: one that tells domain and code by itself, or kOtherErrorName.
[[nodiscard]] std::string errorName(std::string_view domain, std::int64_t code);

/// What a name tells by itself; nothing for kOtherErrorName and for names that are none of ours.
[[nodiscard]] std::optional<ErrorIdentity> errorIdentity(std::string_view name);

}  // namespace molvane::dbus
