#pragma once

#include <cmath>
#include <cstdint>

#include "Base/Date.hpp"

// The moments that the calendar counts with. Inside Scheduling only.

namespace molvane {

/// 30,000 years on either side of 1970, in seconds: within what the standard library's calendar can name.
inline constexpr std::int64_t kCalendarLimit = std::int64_t{30000} * 366 * 86400;

constexpr std::int64_t withinCalendar(std::int64_t seconds) noexcept {
  if (seconds < -kCalendarLimit) return -kCalendarLimit;
  return seconds > kCalendarLimit ? kCalendarLimit : seconds;
}

/// The second since 1970 that has begun at `date`. What lies outside the calendar's range, or is no number,
/// counts as the nearest end of it. The fraction is cut off before the epoch is moved, which would round it.
inline std::int64_t wholeUnixSeconds(Date date) noexcept {
  constexpr std::int64_t kReference = 978307200;
  const double seconds = std::floor(date.secondsSinceReference);
  if (!(seconds > static_cast<double>(-kCalendarLimit))) return -kCalendarLimit;
  if (seconds > static_cast<double>(kCalendarLimit)) return kCalendarLimit;
  return withinCalendar(static_cast<std::int64_t>(seconds) + kReference);
}

}  // namespace molvane
