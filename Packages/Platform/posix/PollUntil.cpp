#include "Platform/posix/PollUntil.hpp"

#include <algorithm>
#include <cerrno>
#include <limits>

#include "Base/NSError.hpp"

namespace molvane {

namespace {

using Clock = std::chrono::steady_clock;

/// Rounded up, lest the last millisecond be spent in a loop; at most what poll can take.
int millisecondsUntil(Clock::time_point deadline) {
  constexpr std::chrono::milliseconds kLongest{std::numeric_limits<int>::max()};
  const Clock::time_point now = Clock::now();
  if (deadline <= now) return 0;
  if (deadline >= now + kLongest) return std::numeric_limits<int>::max();
  return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count());
}

}  // namespace

bool pollUntil(std::span<pollfd> descriptors, Clock::time_point deadline) {
  for (;;) {
    const int ready =
        ::poll(descriptors.data(), static_cast<nfds_t>(descriptors.size()), millisecondsUntil(deadline));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) throwErrno("waiting for descriptors");
    if (ready == 0 && Clock::now() >= deadline) return false;
  }
}

}  // namespace molvane
