#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace molvane {

/// Domain of errors that the operating system reported; the code is an errno value.
inline constexpr std::string_view kPOSIXErrorDomain = "NSPOSIXErrorDomain";

/// An error as it crosses the connection: who says it, which one it is, and a sentence for the person.
///
/// Inside the helper errors are thrown as typed values; they become an NSError only at the reply.
struct NSError {
  std::string domain;
  std::int64_t code = 0;
  std::string localizedDescription;

  bool operator==(const NSError&) const = default;
};

/// The localized description of a system error: "The operation couldn’t be completed. " and the system's own
/// text for the errno.
[[nodiscard]] std::string posixErrorDescription(int errnoValue);

/// A system error that has its own sentence for the person, because the system's text for the errno would not
/// tell what stands in the way. The sentence is its what(), too.
class ExplainedSystemError : public std::system_error {
 public:
  ExplainedSystemError(int errnoValue, std::string sentence)
      : std::system_error(errnoValue, std::generic_category()), sentence_(std::move(sentence)) {}

  [[nodiscard]] const char* what() const noexcept override { return sentence_.c_str(); }

 private:
  std::string sentence_;
};

/// The system error as an NSError of the POSIX domain. `error` must carry an errno value (generic or system
/// category); its message text is replaced by posixErrorDescription, but for an ExplainedSystemError's.
[[nodiscard]] NSError nsError(const std::system_error& error);

/// The exception that is being handled, as the reply of last resort: a std::system_error becomes the POSIX
/// domain, anything else an EIO of that domain with the exception's own text. Call it only inside a catch
/// block.
[[nodiscard]] NSError nsErrorOfCurrentException();

/// Throws std::system_error for the current errno. `what` says which operation on what failed.
[[noreturn]] void throwErrno(const std::string& what);

}  // namespace molvane
