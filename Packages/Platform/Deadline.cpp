#include "Platform/Deadline.hpp"

#include <cmath>

namespace molvane {

std::chrono::steady_clock::time_point deadlineAfter(double seconds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point now = Clock::now();
  const std::chrono::duration<double> span(seconds);
  // Compare with half the range: a double near its end would round past it.
  if (!std::isfinite(seconds) || span > (Clock::time_point::max() - now) / 2) return Clock::time_point::max();
  if (seconds <= 0) return now;
  return now + std::chrono::duration_cast<Clock::duration>(span);
}

}  // namespace molvane
