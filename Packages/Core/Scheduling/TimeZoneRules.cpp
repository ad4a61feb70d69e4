#include "Core/Scheduling/TimeZoneRules.hpp"

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace molvane {

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

// After 400 years the Gregorian calendar repeats, weekdays included.
constexpr int kCycleYears = 400;
constexpr std::int64_t kCycleSeconds = 146097 * kSecondsPerDay;

// More than any offset from UTC.
constexpr std::int64_t kOffsetMargin = 2 * kSecondsPerDay;

constexpr std::int64_t startOfYear(int year) {
  using std::chrono::sys_days;
  const sys_days day(std::chrono::year(year) / std::chrono::January / 1);
  return static_cast<std::int64_t>(day.time_since_epoch().count()) * kSecondsPerDay;
}

int yearOf(std::int64_t unixSeconds) {
  const std::chrono::sys_seconds moment{std::chrono::seconds(unixSeconds)};
  return static_cast<int>(std::chrono::year_month_day(std::chrono::floor<std::chrono::days>(moment)).year());
}

}  // namespace

TimeZoneRules::TimeZoneRules(std::int32_t firstOffset, const std::vector<Transition>& transitions,
                             const std::optional<PosixTimeZone>& afterwards)
    : offset_{firstOffset} {
  for (const Transition& transition : transitions) append(transition);
  if (!afterwards) return;
  if (afterwards->hasDaylightSaving()) {
    appendYears(*afterwards, transitions.empty() ? startOfYear(1) : transitions.back().at);
  } else if (transitions.empty()) {
    offset_.front() = afterwards->standardOffset();
  }
}

void TimeZoneRules::append(const Transition& transition) {
  if (transition.offset == offset_.back()) return;
  at_.push_back(transition.at);
  offset_.push_back(transition.offset);
}

void TimeZoneRules::appendYears(const PosixTimeZone& rule, std::int64_t from) {
  constexpr int kFirstYear = 1800;
  const int year = from < startOfYear(kFirstYear) ? kFirstYear : yearOf(from);
  // A year more at either end, so that the cycle is made of whole years of the rule whatever the offsets.
  const int endYear = year + 1 + kCycleYears;
  for (int each = year; each <= endYear; ++each) {
    for (const Transition& transition : rule.transitions(each)) {
      if (transition.at > from) append(transition);
    }
  }
  tableEnd_ = startOfYear(endYear);
}

std::size_t TimeZoneRules::spanOf(std::int64_t unixSeconds) const noexcept {
  return static_cast<std::size_t>(std::upper_bound(at_.begin(), at_.end(), unixSeconds) - at_.begin());
}

std::int64_t TimeZoneRules::beyondTable(std::int64_t seconds) const noexcept {
  if (!tableEnd_ || seconds < *tableEnd_) return 0;
  return ((seconds - *tableEnd_) / kCycleSeconds + 1) * kCycleSeconds;
}

std::int32_t TimeZoneRules::offsetAt(std::int64_t unixSeconds) const noexcept {
  return offset_[spanOf(unixSeconds - beyondTable(unixSeconds))];
}

std::int64_t TimeZoneRules::momentOf(std::int64_t wallSeconds) const noexcept {
  const std::int64_t wall = wallSeconds - beyondTable(wallSeconds);
  // The offset before a transition holds until the clocks have shown, by the greater of both offsets, that it
  // came: to the end of the time that they skip, and of the first pass through the time that they repeat.
  std::size_t span = spanOf(wall + kOffsetMargin);
  while (span > 0 && wall < at_[span - 1] + std::max(offset_[span - 1], offset_[span])) --span;
  return wallSeconds - offset_[span];
}

}  // namespace molvane
