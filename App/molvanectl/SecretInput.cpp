#include "molvanectl/SecretInput.hpp"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "Base/Utf8.hpp"
#include "molvanectl/Command.hpp"
#include "molvanectl/TerminalSecret.hpp"

namespace molvane::ctl {
namespace {

// Far more than the helper allows, and room for 128 characters of any kind.
constexpr std::size_t kLongestSecret = 16384;

std::string lineOf(int descriptor) {
  const std::string name = "descriptor " + std::to_string(descriptor);
  if (::isatty(descriptor) == 1) {
    throw UsageError(name + " is a terminal, which shows what is typed; without the option it is asked for");
  }
  std::string line;
  for (;;) {
    // Byte by byte: what follows the line is the next one's, perhaps for another reader.
    char byte = 0;
    const ssize_t count = ::read(descriptor, &byte, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      throw std::runtime_error("No password could be read from " + name + ": " +
                               std::generic_category().message(errno) + ".");
    }
    if (count == 0 || byte == '\n') break;
    if (line.size() == kLongestSecret) throw std::runtime_error("The line from " + name + " has no end.");
    line += byte;
  }
  if (line.empty()) throw std::runtime_error("There is no password on " + name + ".");
  return line;
}

/// `what` names the password at the beginning of a sentence.
std::string checked(const std::string& what, std::string secret) {
  if (!isValidUtf8(secret)) throw UsageError("the password is not valid UTF-8");
  // Of these the helper only says that a password must be one line of some length.
  std::string_view problem;
  if (secret.ends_with('\r'))
    problem = "ends with a carriage return, as a line of a text file from Windows does";
  if (secret.find('\0') != std::string::npos) problem = "holds a NUL character";
  if (!problem.empty())
    throw std::runtime_error(what + " " + std::string(problem) + ". Nothing was changed.");
  return secret;
}

}  // namespace

SecretInput::SecretInput(const std::string& descriptor) {
  if (descriptor.empty()) return;
  const char* const end = descriptor.data() + descriptor.size();
  const auto [last, error] = std::from_chars(descriptor.data(), end, descriptor_);
  if (error != std::errc() || last != end || descriptor_ < 0) {
    throw UsageError("'" + descriptor + "' is no number of a descriptor");
  }
}

std::string SecretInput::read(const std::string& prompt) const {
  if (descriptor_ >= 0) return checked(prompt, lineOf(descriptor_));
  return checked(prompt, secretFromTerminal(prompt + ": "));
}

std::string SecretInput::readNew(const std::string& prompt) const {
  std::string secret = read(prompt);
  if (descriptor_ < 0 && secretFromTerminal(prompt + ", again: ") != secret) {
    throw std::runtime_error("The two passwords differ. Nothing was changed.");
  }
  return secret;
}

}  // namespace molvane::ctl
