#pragma once

#include <memory>

#include "molvanectl/Command.hpp"

namespace molvane::ctl {

[[nodiscard]] std::unique_ptr<Command> deviceWriteCommand();

// The commands about a job that runs already.
[[nodiscard]] std::unique_ptr<Command> deviceStatusCommand();
[[nodiscard]] std::unique_ptr<Command> deviceWatchCommand();
[[nodiscard]] std::unique_ptr<Command> deviceCancelCommand();

}  // namespace molvane::ctl
