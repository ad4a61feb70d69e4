#include <nlohmann/json.hpp>

#include "molvanectl/Commands.hpp"
#include "molvanectl/Session.hpp"

namespace molvane::ctl {
namespace {

class PingCommand : public Command {
 public:
  CommandText text() const override {
    return {
        "ping", "Check that the helper answers",
        "Connects to the helper, which starts it if it does not run, and prints its answer, \"pong\". With "
        "--json: an object with the key reply.",
        "molvanectl ping"};
  }

  ExitStatus run(Session& session) override {
    const auto [reply] = session.ask(&MolvaneHelperXPCProtocol::ping);
    if (session.output().json()) {
      session.output().record({{"reply", reply}});
    } else {
      session.output().text(reply);
    }
    return ExitStatus::done;
  }
};

}  // namespace

CommandGroup pingCommands() { return groupOf<PingCommand>({}); }

}  // namespace molvane::ctl
