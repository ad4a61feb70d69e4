#pragma once

#include <string>
#include <string_view>

#include "molvanectl/Session.hpp"

namespace molvane::ctl {

/// Has the person at the terminal type `name` before everything on it is erased. Returns whether they did; if
/// not, that has been reported.
///
/// Throws UsageError where nobody can be asked: with JSON, or when standard input or standard error is no
/// terminal.
[[nodiscard]] bool confirmErasing(Session& session, std::string_view name);

}  // namespace molvane::ctl
