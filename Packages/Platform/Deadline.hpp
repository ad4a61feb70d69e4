#pragma once

#include <chrono>

namespace molvane {

/// The moment that lies so many seconds ahead: now for none or fewer, the clock's last moment for infinity,
/// for what is not a number and for whatever lies beyond the clock.
[[nodiscard]] std::chrono::steady_clock::time_point deadlineAfter(double seconds);

}  // namespace molvane
