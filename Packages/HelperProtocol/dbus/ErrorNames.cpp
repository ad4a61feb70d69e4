#include "HelperProtocol/dbus/ErrorNames.hpp"

#include <array>
#include <limits>

#include "HelperProtocol/HelperErrorDomains.hpp"
#include "HelperProtocol/dbus/ErrnoNames.hpp"

namespace molvane::dbus {

namespace {

constexpr std::string_view kErrnoPrefix = "System.Error.";

struct NamedError {
  std::string_view domain;
  std::int64_t code;
  std::string_view element;
};

constexpr std::array kNamedErrors = {
    NamedError{kHelperErrorDomain, 1, "Denied"},
    NamedError{kHelperErrorDomain, 2, "RootDeletionForbidden"},
    NamedError{kHelperErrorDomain, 3, "DeniedBasename"},
    NamedError{kHelperErrorDomain, 4, "NotFound"},
    NamedError{kHelperErrorDomain, 5, "UnknownTask"},
    NamedError{kHelperErrorDomain, 6, "TaskNotPrivileged"},
    NamedError{kHelperErrorDomain, 7, "BadJobSpec"},
    NamedError{kHelperErrorDomain, 8, "UnknownJob"},
    NamedError{kPolicyErrorDomain, 10, "DeviceJob"},
    NamedError{kPolicyErrorDomain, 11, "ApplicationRemoval"},
    NamedError{kPolicyErrorDomain, 12, "PackageInstall"},
    NamedError{kPolicyErrorDomain, 13, "ApplicationInstall"},
};

/// Whether `name` is `domain`, a dot and `element`.
bool isQualified(std::string_view name, std::string_view domain, std::string_view element) noexcept {
  return name.size() == domain.size() + 1 + element.size() && name.starts_with(domain) &&
         name[domain.size()] == '.' && name.ends_with(element);
}

}  // namespace

std::string errorName(std::string_view domain, std::int64_t code) {
  for (const NamedError& error : kNamedErrors) {
    if (error.domain == domain && error.code == code)
      return std::string(error.domain) + "." + std::string(error.element);
  }
  if (domain == kPOSIXErrorDomain && code > 0 && code <= std::numeric_limits<int>::max()) {
    const std::string_view name = errnoName(static_cast<int>(code));
    if (!name.empty()) return std::string(kErrnoPrefix) + std::string(name);
  }
  return std::string(kOtherErrorName);
}

std::optional<ErrorIdentity> errorIdentity(std::string_view name) {
  for (const NamedError& error : kNamedErrors) {
    if (isQualified(name, error.domain, error.element))
      return ErrorIdentity{std::string(error.domain), error.code};
  }
  if (name.starts_with(kErrnoPrefix)) {
    if (const auto value = errnoOfName(name.substr(kErrnoPrefix.size()))) {
      return ErrorIdentity{std::string(kPOSIXErrorDomain), *value};
    }
  }
  return std::nullopt;
}

}  // namespace molvane::dbus
