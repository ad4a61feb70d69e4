#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace molvane::ctl {

/// Whoever started the program, and the time that passes while it waits.
class Person {
 public:
  using Clock = std::chrono::steady_clock;

  virtual ~Person() = default;

  /// The line that is typed next, without its newline; nothing when there is nobody to ask, or no more comes.
  [[nodiscard]] virtual std::optional<std::string> typedLine() = 0;

  /// From here on an interrupt (Ctrl-C) is counted instead of ending the program.
  virtual void catchInterrupts() = 0;

  /// How often there was one since then.
  [[nodiscard]] virtual int interrupts() const = 0;

  /// Lets `duration` pass; an interrupt cuts it short.
  virtual void wait(std::chrono::milliseconds duration) = 0;

  [[nodiscard]] virtual Clock::time_point now() const = 0;
};

/// The person at standard input. There is nobody unless that is a terminal. At most one object at a time; its
/// going restores what interrupts did before.
class TerminalPerson : public Person {
 public:
  TerminalPerson() = default;
  ~TerminalPerson() override;
  TerminalPerson(const TerminalPerson&) = delete;
  TerminalPerson& operator=(const TerminalPerson&) = delete;

  std::optional<std::string> typedLine() override;
  void catchInterrupts() override;
  int interrupts() const override;
  void wait(std::chrono::milliseconds duration) override;
  Clock::time_point now() const override { return Clock::now(); }

 private:
  bool isCatching_ = false;
};

}  // namespace molvane::ctl
