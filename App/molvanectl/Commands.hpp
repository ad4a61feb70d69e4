#pragma once

#include <vector>

#include "molvanectl/Command.hpp"

namespace molvane::ctl {

CommandGroup pingCommands();
CommandGroup pathCommands();
CommandGroup taskCommands();
CommandGroup accountCommands();
CommandGroup companyAdminCommands();
CommandGroup deviceCommands();
CommandGroup appCommands();
CommandGroup packageCommands();
CommandGroup pasteCommands();
CommandGroup scheduleCommands();

/// Every command of the program, in the order of the help text.
std::vector<CommandGroup> allCommands();

/// A group made of freshly built commands.
template <typename... Kinds>
CommandGroup groupOf(const CommandText& text) {
  CommandGroup group{text, {}};
  (group.commands.push_back(std::make_unique<Kinds>()), ...);
  return group;
}

}  // namespace molvane::ctl
