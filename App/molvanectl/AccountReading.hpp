#pragma once

#include "Core/LocalAccounts.hpp"

namespace molvane::ctl {

/// The machine's accounts, read as anybody may read them and without the helper: it has no method that only
/// lists. Throws std::runtime_error when the system's tools cannot tell.
///
/// The program gives up its group for good first, since the tools run in the caller's name: no connection to
/// the helper can be made afterwards.
[[nodiscard]] LocalAccountsSnapshot readAccounts();

}  // namespace molvane::ctl
