#include "molvanectl/Commands.hpp"

namespace molvane::ctl {

void Command::declare(OptionSet& /*options*/) {}

std::vector<CommandGroup> allCommands() {
  std::vector<CommandGroup> groups;
  groups.push_back(pingCommands());
  groups.push_back(pathCommands());
  groups.push_back(taskCommands());
  groups.push_back(accountCommands());
  groups.push_back(companyAdminCommands());
  groups.push_back(deviceCommands());
  groups.push_back(appCommands());
  groups.push_back(packageCommands());
  groups.push_back(pasteCommands());
  groups.push_back(scheduleCommands());
  return groups;
}

}  // namespace molvane::ctl
