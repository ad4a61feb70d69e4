#pragma once

#include <string>

#include "Base/CaseError.hpp"
#include "Base/NSError.hpp"

namespace molvane {

/// In the order of their error codes: the position of a case plus one.
enum class HelperServiceErrorCase {
  denied,                 ///< carries the path
  rootDeletionForbidden,  ///< carries the path
  deniedBasename,         ///< carries the last path component
  notFound,               ///< carries the path
  unknownTask,            ///< carries the task identifier
  taskNotPrivileged,      ///< carries the task identifier
  badJobSpec,             ///< carries a detail text
  unknownJob,             ///< carries the job identifier
};
[[nodiscard]] std::string describe(HelperServiceErrorCase which, const std::string& payload);

/// A refusal of the service itself, as opposed to one of a policy.
class HelperServiceError : public CaseError<HelperServiceErrorCase> {
 public:
  using CaseError::CaseError;

  [[nodiscard]] NSError asNSError() const;
};

/// What the exception that is being handled becomes in a reply: a HelperServiceError its own NSError, a
/// system error the POSIX domain with its errno. Call it only inside a catch block.
[[nodiscard]] NSError replyErrorOfCurrentException();

}  // namespace molvane
