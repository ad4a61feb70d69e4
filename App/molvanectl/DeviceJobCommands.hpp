#pragma once

#include <memory>
#include <vector>

#include "molvanectl/Command.hpp"

namespace molvane::ctl {

/// What can be asked about a job that runs already: status, cancel, watch.
std::vector<std::unique_ptr<Command>> deviceJobCommands();

}  // namespace molvane::ctl
