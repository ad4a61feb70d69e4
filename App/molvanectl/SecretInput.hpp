#pragma once

#include <string>

namespace molvane::ctl {

/// Where a command gets a password from: a descriptor that its caller opened, or the terminal.
///
/// Never an argument, which everybody can read in the process table.
class SecretInput {
 public:
  /// `descriptor` is the value of an option: a number, or empty for the terminal. Throws UsageError for
  /// anything else.
  explicit SecretInput(const std::string& descriptor);

  /// The password: the next line of the descriptor, without its newline and without reading beyond it, or
  /// what a person types after `prompt` with echo off. Throws UsageError for what cannot be sent (no UTF-8)
  /// and for a descriptor that is a terminal, which would show the password;
  /// std::runtime_error when there is none: a closed or empty descriptor, an empty or endless line, one with
  /// a NUL or a carriage return at its end, no terminal.
  [[nodiscard]] std::string read(const std::string& prompt) const;

  /// The same for a new password, which a person types twice; std::runtime_error when the two differ.
  [[nodiscard]] std::string readNew(const std::string& prompt) const;

 private:
  int descriptor_ = -1;
};

}  // namespace molvane::ctl
