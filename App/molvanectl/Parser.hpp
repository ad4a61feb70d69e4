#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "molvanectl/Command.hpp"

namespace molvane::ctl {

/// Where the helper listens.
inline constexpr const char* kDefaultSocketPath = "/run/com.molvane.helper.sock";

/// Options that every command takes.
struct GlobalOptions {
  std::string socketPath = kDefaultSocketPath;
  bool json = false;
};

/// What a command line asks for: a command to run, or a text to print.
struct Request {
  Command* command = nullptr;
  std::string printout;  ///< where there is no command
};

/// Reads the command line. Serves one command line.
class Parser {
 public:
  explicit Parser(std::vector<CommandGroup> groups);
  ~Parser();
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  /// `arguments` without the program's name. Throws UsageError with a sentence that names what is wrong. The
  /// command belongs to this object.
  [[nodiscard]] Request parse(const std::vector<std::string>& arguments);

  /// What was read of the options that every command takes, also after a UsageError.
  [[nodiscard]] const GlobalOptions& globalOptions() const;

  /// The command that was recognised, as in "molvanectl task run"; the program alone when there was none.
  [[nodiscard]] std::string commandName() const;

 private:
  struct Node;
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace molvane::ctl
