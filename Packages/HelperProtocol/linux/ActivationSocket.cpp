#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include "Base/NSError.hpp"
#include "HelperProtocol/dbus/ListeningSocket.hpp"

namespace molvane::dbus {

namespace {

/// Passed descriptors begin behind the standard three.
constexpr int kFirstPassed = 3;

std::optional<int> numberIn(const char* variable) {
  const char* value = std::getenv(variable);
  if (value == nullptr) return std::nullopt;
  const std::string_view text(value);
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace

std::optional<FileDescriptor> activationSocket() {
  const std::optional<int> process = numberIn("LISTEN_PID");
  const std::optional<int> count = numberIn("LISTEN_FDS");
  for (const char* variable : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) ::unsetenv(variable);
  // The variables outlive the process that they were meant for where it started another without clearing
  // them.
  if (process != ::getpid() || !count || *count == 0) return std::nullopt;
  if (*count != 1) {
    throw std::system_error(EINVAL, std::generic_category(),
                            "not exactly one socket was passed to this process");
  }
  FileDescriptor socket(kFirstPassed);
  if (::fcntl(socket.get(), F_SETFD, FD_CLOEXEC) != 0) throwErrno("take the socket passed to this process");
  return socket;
}

}  // namespace molvane::dbus
