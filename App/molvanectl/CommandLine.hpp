#pragma once

#include <string>
#include <vector>

#include "molvanectl/Command.hpp"
#include "molvanectl/Output.hpp"
#include "molvanectl/Session.hpp"

namespace molvane::ctl {

/// The program: reads a command line, runs its command and reports what went wrong.
class CommandLine {
 public:
  /// `connect` is called at most once a run, and only by commands that need the helper. The sinks and
  /// the console must outlive this object.
  CommandLine(const Streams& streams, Console& console, ConnectionFactory connect);

  /// `arguments` without the program's name. Throws nothing.
  ExitStatus run(const std::vector<std::string>& arguments) noexcept;

 private:
  ExitStatus runCommand(Command& command, Session& session, const std::string& commandName);
  ExitStatus usageError(const UsageError& error, const std::string& commandName);
  ExitStatus connectionError(const ConnectionError& error, const Session& session);
  ExitStatus failure(ExitStatus status, const std::string& description);

  Output output_;
  Console& console_;
  ConnectionFactory connect_;
};

}  // namespace molvane::ctl
