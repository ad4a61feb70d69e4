#include "Core/Scheduling/Calendar.hpp"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "Core/Scheduling/CalendarRange.hpp"
#include "Core/Scheduling/FloorDivision.hpp"
#include "Core/Scheduling/TimeZoneRules.hpp"

namespace molvane {

namespace {

using std::chrono::sys_days;

constexpr std::int64_t kSecondsPerMinute = 60;
constexpr std::int64_t kSecondsPerHour = 3600;
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr int kDaysPerWeek = 7;

// 1970 began on a Thursday.
constexpr int weekdayOfDay(std::int64_t dayNumber) noexcept {
  constexpr std::int64_t kFirstThursday = 4;
  return static_cast<int>(floorModulo(dayNumber + kFirstThursday, kDaysPerWeek)) + 1;
}

/// How many days after the beginning of its week a weekday comes.
constexpr int dayOfWeek(std::int64_t weekday, int firstWeekday) noexcept {
  return static_cast<int>(floorModulo(floorModulo(weekday, kDaysPerWeek) - firstWeekday, kDaysPerWeek));
}

std::chrono::year_month_day civil(std::int64_t dayNumber) noexcept {
  return {sys_days(std::chrono::days(dayNumber))};
}

std::int64_t dayNumber(const std::chrono::year_month_day& day) noexcept {
  return sys_days(day).time_since_epoch().count();
}

/// The seconds of a time of day, or as many as lead out of the calendar's range.
std::int64_t secondsOf(const Calendar::Time& time) noexcept {
  const auto part = [](std::int64_t count, std::int64_t unit) {
    const std::int64_t most = 4 * kCalendarLimit / unit;
    return std::clamp(count, -most, most) * unit;
  };
  return part(time.hour, kSecondsPerHour) + part(time.minute, kSecondsPerMinute) + part(time.second, 1);
}

}  // namespace

Calendar::Calendar(TimeZone timeZone, int firstWeekday, int minimumDaysInFirstWeek)
    : timeZone_(std::move(timeZone)),
      firstWeekday_(firstWeekday),
      minimumDaysInFirstWeek_(minimumDaysInFirstWeek) {
  const auto isDayOfWeek = [](int day) { return day >= 1 && day <= kDaysPerWeek; };
  if (!isDayOfWeek(firstWeekday) || !isDayOfWeek(minimumDaysInFirstWeek)) {
    throw std::invalid_argument("a week has the days 1 to 7");
  }
}

Calendar Calendar::current() { return Calendar(TimeZone::current()); }

std::int64_t Calendar::wallSeconds(Date date) const noexcept {
  const std::int64_t seconds = wholeUnixSeconds(date);
  return seconds + timeZone_.rules().offsetAt(seconds);
}

Calendar::Day Calendar::day(Date date) const noexcept {
  const std::chrono::year_month_day day = civil(floorDivision(wallSeconds(date), kSecondsPerDay));
  return {static_cast<int>(day.year()), static_cast<int>(static_cast<unsigned>(day.month())),
          static_cast<int>(static_cast<unsigned>(day.day()))};
}

Calendar::Time Calendar::time(Date date) const noexcept {
  const std::int64_t second = floorModulo(wallSeconds(date), kSecondsPerDay);
  return {second / kSecondsPerHour, second / kSecondsPerMinute % 60, second % kSecondsPerMinute};
}

int Calendar::weekday(Date date) const noexcept {
  return weekdayOfDay(floorDivision(wallSeconds(date), kSecondsPerDay));
}

std::int64_t Calendar::firstDayOfWeekYear(int year) const noexcept {
  const std::int64_t newYear = dayNumber(std::chrono::year(year) / std::chrono::January / 1);
  const int daysOfLastYear = dayOfWeek(weekdayOfDay(newYear), firstWeekday_);
  const std::int64_t weekOfNewYear = newYear - daysOfLastYear;
  const bool belongsToYear = kDaysPerWeek - daysOfLastYear >= minimumDaysInFirstWeek_;
  return belongsToYear ? weekOfNewYear : weekOfNewYear + kDaysPerWeek;
}

Calendar::Week Calendar::week(Date date) const noexcept {
  const std::int64_t today = floorDivision(wallSeconds(date), kSecondsPerDay);
  int year = static_cast<int>(civil(today).year());
  if (today >= firstDayOfWeekYear(year + 1)) {
    ++year;
  } else if (today < firstDayOfWeekYear(year)) {
    --year;
  }
  return {year, static_cast<int>((today - firstDayOfWeekYear(year)) / kDaysPerWeek) + 1};
}

Date Calendar::dateOnDay(std::int64_t dayNumber, const Time& time) const noexcept {
  const std::int64_t wall = withinCalendar(dayNumber * kSecondsPerDay + secondsOf(time));
  return Date::fromUnixSeconds(static_cast<double>(timeZone_.rules().momentOf(wall)));
}

Date Calendar::date(const Day& day, const Time& time) const noexcept {
  return dateOnDay(dayNumber(std::chrono::year(day.year) / day.month / day.day), time);
}

Date Calendar::date(const Week& week, std::int64_t weekday, const Time& time) const noexcept {
  const std::int64_t firstDay =
      firstDayOfWeekYear(week.yearForWeekOfYear) + std::int64_t{week.weekOfYear - 1} * kDaysPerWeek;
  return dateOnDay(firstDay + dayOfWeek(weekday, firstWeekday_), time);
}

Date Calendar::addingDays(Date date, int days) const noexcept {
  const TimeZoneRules& rules = timeZone_.rules();
  const std::int64_t before = wholeUnixSeconds(date);
  const std::int64_t offsetBefore = rules.offsetAt(before);
  const std::int64_t after = withinCalendar(before + days * kSecondsPerDay);
  const std::int64_t change = (rules.offsetAt(after) - offsetBefore) % kSecondsPerDay;

  std::int64_t shift = after - before - change;
  const std::int64_t timeOfDay = floorModulo(before + offsetBefore, kSecondsPerDay);
  const std::int64_t reached = before + shift;
  const bool skipped = floorModulo(reached + rules.offsetAt(reached), kSecondsPerDay) != timeOfDay;
  if (skipped && change > 0) shift += change;
  return {date.secondsSinceReference + static_cast<double>(shift)};
}

}  // namespace molvane
