#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace molvane::ctl {

/// Waits between two looks at something that takes long, and notices when the person wants to stop.
class Waiter {
 public:
  using Time = std::chrono::steady_clock::time_point;

  virtual ~Waiter() = default;

  /// Never goes back.
  [[nodiscard]] virtual Time now() = 0;

  /// Returns true as soon as there is an interruption that no earlier call has returned for, false after
  /// `longest`.
  [[nodiscard]] virtual bool wait(std::chrono::milliseconds longest) = 0;
};

/// The person's side of the program, apart from its output.
class Console {
 public:
  virtual ~Console() = default;

  /// Whether somebody can be asked: standard input is a terminal.
  [[nodiscard]] virtual bool inIsTerminal() = 0;

  /// The next line of standard input, without its end; nothing at its end, or for a line that is absurdly
  /// long. Throws std::system_error.
  [[nodiscard]] virtual std::optional<std::string> readLine() = 0;

  /// Whether the terminal knows escape sequences, so that a line can be drawn over or coloured.
  [[nodiscard]] virtual bool redraws() = 0;

  /// Width of that terminal now; 80 where it does not tell.
  [[nodiscard]] virtual std::size_t columns() = 0;

  /// As long as the waiter lives, the signals by which a person interrupts a program come to it. One at a
  /// time. Throws std::system_error.
  [[nodiscard]] virtual std::unique_ptr<Waiter> makeWaiter() = 0;
};

}  // namespace molvane::ctl
