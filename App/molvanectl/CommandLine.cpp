#include "molvanectl/CommandLine.hpp"

#include <cerrno>
#include <exception>
#include <utility>

#include "molvanectl/Commands.hpp"
#include "molvanectl/Parser.hpp"

namespace molvane::ctl {

CommandLine::CommandLine(const Streams& streams, Console& console, ConnectionFactory connect)
    : output_(streams), console_(console), connect_(std::move(connect)) {}

ExitStatus CommandLine::run(const std::vector<std::string>& arguments) noexcept {
  ExitStatus failed = ExitStatus::failed;
  try {
    Parser parser(allCommands());
    Request request;
    try {
      request = parser.parse(arguments);
    } catch (const UsageError& error) {
      output_.setJson(parser.globalOptions().json);
      return usageError(error, parser.commandName());
    }
    output_.setJson(parser.globalOptions().json);
    if (request.command == nullptr) {
      output_.text(request.printout);
      return ExitStatus::done;
    }
    failed = request.command->failure();
    Session session(output_, console_, connect_, parser.globalOptions().socketPath);
    return runCommand(*request.command, session, parser.commandName());
  } catch (const OutputError& error) {
    // A reader that has gone away wanted no more; it needs no message.
    if (error.code().value() == EPIPE) return failed;
    return failure(failed, "Standard output could not be written: " + error.code().message() + ".");
  } catch (const std::exception& error) {
    return failure(failed, error.what());
  }
}

ExitStatus CommandLine::runCommand(Command& command, Session& session, const std::string& commandName) {
  try {
    return command.run(session);
  } catch (const UsageError& error) {
    return usageError(error, commandName);
  } catch (const RemoteError& error) {
    output_.error(error.error());
    return ExitStatus::failed;
  } catch (const ConnectionError& error) {
    return connectionError(error, session);
  }
}

ExitStatus CommandLine::usageError(const UsageError& error, const std::string& commandName) {
  const std::string pointer = "Try '" + commandName + " --help'.";
  return failure(ExitStatus::usage, error.what() + std::string(output_.json() ? ". " : "\n") + pointer);
}

ExitStatus CommandLine::connectionError(const ConnectionError& error, const Session& session) {
  if (!session.connected()) return failure(ExitStatus::noConnection, error.what());
  std::string description =
      "The connection to the helper was lost before it answered. Whether it did what was asked is not known.";
  if (!session.answered())
    description += " The helper also closes the connection when it does not accept this client's signature.";
  return failure(ExitStatus::noConnection, description);
}

ExitStatus CommandLine::failure(ExitStatus status, const std::string& description) {
  output_.error({std::string(kProgramErrorDomain), static_cast<int>(status), description});
  return status;
}

}  // namespace molvane::ctl
