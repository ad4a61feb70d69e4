#pragma once

#include "molvanectl/Console.hpp"

namespace molvane::ctl {

/// The terminal and the signals of this process.
///
/// Its waiters take SIGINT and SIGTERM, unless the program was started with them ignored; when one goes, what
/// was there before is put back. After two of them a third ends the program, so that not even a call which
/// never returns can hold a person.
class SystemConsole final : public Console {
 public:
  [[nodiscard]] bool inIsTerminal() override;
  [[nodiscard]] std::optional<std::string> readLine() override;
  [[nodiscard]] bool redraws() override;
  [[nodiscard]] std::size_t columns() override;
  [[nodiscard]] std::unique_ptr<Waiter> makeWaiter() override;
};

}  // namespace molvane::ctl
