#pragma once

#include <memory>
#include <string>

#include "HelperProtocol/Connection.hpp"
#include "HelperProtocol/HelperXPCProtocol.hpp"

namespace molvane::ctl {

/// Connects to the helper that listens at `socketPath`. Throws ConnectionError with a sentence that says what
/// a person can do about it. The helper may still end the connection when it does not accept this program's
/// signature; that shows at the first call.
[[nodiscard]] std::unique_ptr<MolvaneHelperXPCProtocol> connectToHelper(const std::string& socketPath);

}  // namespace molvane::ctl
