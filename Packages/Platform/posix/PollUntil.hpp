#pragma once

#include <poll.h>

#include <chrono>
#include <span>

namespace molvane {

/// poll(2) with a moment instead of a time span, carried on after signals: true when a descriptor has an
/// event, false when `deadline` came first. Looks at least once, even when the deadline is over.
/// time_point::max() waits without end. Negative descriptors are skipped. Throws std::system_error.
bool pollUntil(std::span<pollfd> descriptors, std::chrono::steady_clock::time_point deadline);

}  // namespace molvane
