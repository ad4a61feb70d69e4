#pragma once

#include <memory>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace molvane::ctl {

class OptionSet;
class Session;

/// How the program ends. The numbers are what scripts see.
enum class ExitStatus {
  done = 0,
  failed = 1,        ///< the helper refused, what was asked for failed, or the output could not be written
  usage = 2,         ///< the command line makes no sense
  noConnection = 3,  ///< no connection to the helper, or it was lost
  // Of a command that looks for something, as grep has them.
  found = 1,
  trouble = 2,
};

/// The command line makes no sense. A command may throw it for what only it can judge.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What help says about a command. Plain sentences without line breaks: help lays them out.
struct CommandText {
  std::string_view name;
  std::string_view summary;      ///< for the list of commands; no full stop
  std::string_view description;  ///< whole sentences
  std::string_view example;      ///< one line to type
};

/// One command of the program. It is declared once, and run at most once.
class Command {
 public:
  virtual ~Command() = default;

  [[nodiscard]] virtual CommandText text() const = 0;

  /// Declares the command's own options and arguments; they are filled in before run().
  virtual void declare(OptionSet& options);

  /// Does the work. What it throws is reported by the caller: UsageError, ConnectionError, OutputError,
  /// anything else as a failure.
  virtual ExitStatus run(Session& session) = 0;

  /// How the program ends when run throws OutputError or something else that has no status of its own.
  [[nodiscard]] virtual ExitStatus failure() const { return ExitStatus::failed; }
};

/// Commands that belong together: `molvanectl NAME COMMAND`, or `molvanectl COMMAND` where the name is empty.
struct CommandGroup {
  CommandText text;
  std::vector<std::unique_ptr<Command>> commands;
};

}  // namespace molvane::ctl
