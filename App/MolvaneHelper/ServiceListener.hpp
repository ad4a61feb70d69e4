#pragma once

#include <memory>

#include "HelperProtocol/Connection.hpp"

namespace molvane {

/// The host's listener on the helper's service: on the socket that the service manager passed, or, started by
/// hand, on one that it binds itself. It takes what it needs from the environment, so call it before there
/// are other threads. Throws std::system_error.
[[nodiscard]] std::unique_ptr<Listener> makeServiceListener();

}  // namespace molvane
