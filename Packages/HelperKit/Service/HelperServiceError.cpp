#include "HelperKit/Service/HelperServiceError.hpp"

#include "HelperProtocol/HelperErrorDomains.hpp"

namespace molvane {

std::string describe(HelperServiceErrorCase which, const std::string& payload) {
  switch (which) {
    case HelperServiceErrorCase::denied:
      return "Path not allowed: " + payload;
    case HelperServiceErrorCase::rootDeletionForbidden:
      return "Refusing to delete allowlist root: " + payload;
    case HelperServiceErrorCase::deniedBasename:
      return "Refusing to delete denied item: " + payload;
    case HelperServiceErrorCase::notFound:
      return "Path not found: " + payload;
    case HelperServiceErrorCase::unknownTask:
      return "Unknown maintenance task: " + payload;
    case HelperServiceErrorCase::taskNotPrivileged:
      return "Task " + payload + " does not need root; run it from the app.";
    case HelperServiceErrorCase::badJobSpec:
      return "Bad device job: " + payload;
    case HelperServiceErrorCase::unknownJob:
      return "Unknown job: " + payload;
  }
  return "Helper error";
}

NSError HelperServiceError::asNSError() const {
  return {std::string(kHelperErrorDomain), static_cast<std::int64_t>(which()) + 1, errorDescription()};
}

NSError replyErrorOfCurrentException() {
  try {
    throw;
  } catch (const HelperServiceError& error) {
    return error.asNSError();
  } catch (...) {
    return nsErrorOfCurrentException();
  }
}

}  // namespace molvane
