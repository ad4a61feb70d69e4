#pragma once

#include <memory>

#include "molvanectl/Command.hpp"

namespace molvane::ctl {

// The commands about a job that runs already; what starts one stands in DeviceCommands.cpp.
[[nodiscard]] std::unique_ptr<Command> deviceStatusCommand();
[[nodiscard]] std::unique_ptr<Command> deviceWatchCommand();
[[nodiscard]] std::unique_ptr<Command> deviceCancelCommand();

}  // namespace molvane::ctl
