#include "Base/NSError.hpp"

#include <cerrno>
#include <exception>

namespace molvane {

std::string posixErrorDescription(int errnoValue) {
  return "The operation couldn’t be completed. " + std::generic_category().message(errnoValue);
}

NSError nsError(const std::system_error& error) {
  const int code = error.code().value();
  const auto* explained = dynamic_cast<const ExplainedSystemError*>(&error);
  return {std::string(kPOSIXErrorDomain), code,
          explained != nullptr ? explained->what() : posixErrorDescription(code)};
}

NSError nsErrorOfCurrentException() {
  try {
    throw;
  } catch (const std::system_error& error) {
    return nsError(error);
  } catch (const std::exception& error) {
    return {std::string(kPOSIXErrorDomain), EIO, error.what()};
  }
}

void throwErrno(const std::string& what) {
  const int code = errno;
  throw std::system_error(code, std::generic_category(), what);
}

}  // namespace molvane
