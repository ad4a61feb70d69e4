#include "Core/Scheduling/Schedule.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "Base/HashCombine.hpp"
#include "Core/Scheduling/CalendarRange.hpp"
#include "Core/Scheduling/FloorDivision.hpp"

namespace molvane {

namespace {

constexpr int kDaysPerWeek = 7;
constexpr std::int64_t kHoursPerDay = 24;
constexpr std::int64_t kMinutesPerHour = 60;
constexpr std::int64_t kMinutesPerDay = kHoursPerDay * kMinutesPerHour;
constexpr double kSecondsPerHour = 3600;
constexpr double kSecondsPerDay = 86400;

[[noreturn]] void throwOutsideCalendar() {
  throw std::out_of_range("no run can be computed for a moment outside the calendar");
}

/// The first that is later than `after` of `run` and the runs every so many days from there. Mostly that is
/// `run` or the next one. But where the clocks go back across midnight, the next day's run can lie before
/// `after` as well, and hours below zero put `run` days back.
Date firstLater(Date run, int days, Date after, const Calendar& calendar) {
  if (run > after) return run;
  // The clocks are moved by less than a day, whole days aside, so this passes no later run over.
  const double behind = (after.secondsSinceReference - run.secondsSinceReference) / (days * kSecondsPerDay);
  const int first = std::max(static_cast<int>(behind), 1);
  constexpr int kMostSteps = 4;
  for (int step = first; step < first + kMostSteps; ++step) {
    const Date next = calendar.addingDays(run, step * days);
    if (next > after) return next;
  }
  throwOutsideCalendar();
}

Date nextRunOf(const Schedule::Daily& daily, Date after, const Calendar& calendar) {
  const Date today = calendar.date(calendar.day(after), {daily.hour, daily.minute});
  return firstLater(today, 1, after, calendar);
}

Date nextRunOf(const Schedule::Weekly& weekly, Date after, const Calendar& calendar) {
  const Date thisWeek = calendar.date(calendar.week(after), weekly.weekday, {weekly.hour, weekly.minute});
  return firstLater(thisWeek, kDaysPerWeek, after, calendar);
}

Date nextRunOf(const Schedule::EveryHours& every, Date after, const Calendar& /*calendar*/) {
  const double hours = static_cast<double>(std::max<std::int64_t>(every.count, 1));
  return {after.secondsSinceReference + hours * kSecondsPerHour};
}

/// A time of day within the day, and by how many days it was off, whole weeks aside.
struct TimeOfDay {
  std::int64_t minutes = 0;
  std::int64_t days = 0;
};

TimeOfDay timeOfDay(std::int64_t hour, std::int64_t minute) {
  const std::int64_t minutes =
      floorModulo(hour, kHoursPerDay) * kMinutesPerHour + floorModulo(minute, kMinutesPerDay);
  const std::int64_t days = floorDivision(hour, kHoursPerDay) % kDaysPerWeek +
                            floorDivision(minute, kMinutesPerDay) % kDaysPerWeek + minutes / kMinutesPerDay;
  return {minutes % kMinutesPerDay, days};
}

std::string timeText(const TimeOfDay& time) {
  return fmt::format("{:02}:{:02}", time.minutes / kMinutesPerHour, time.minutes % kMinutesPerHour);
}

std::string textOf(const Schedule::Daily& daily) {
  return "Every day at " + timeText(timeOfDay(daily.hour, daily.minute));
}

std::string textOf(const Schedule::Weekly& weekly) {
  constexpr std::array<std::string_view, kDaysPerWeek> kWeekdays = {
      "Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
  const TimeOfDay time = timeOfDay(weekly.hour, weekly.minute);
  const std::int64_t day = weekly.weekday % kDaysPerWeek - 1 + time.days;
  const auto index = static_cast<std::size_t>(floorModulo(day, kDaysPerWeek));
  return fmt::format("Every {} at {}", kWeekdays[index], timeText(time));
}

std::string textOf(const Schedule::EveryHours& every) {
  return every.count <= 1 ? "Every hour" : fmt::format("Every {} hours", every.count);
}

}  // namespace

Schedule Schedule::daily(std::int64_t hour, std::int64_t minute) { return Schedule(Daily{hour, minute}); }

Schedule Schedule::weekly(std::int64_t weekday, std::int64_t hour, std::int64_t minute) {
  return Schedule(Weekly{weekday, hour, minute});
}

Schedule Schedule::everyHours(std::int64_t count) { return Schedule(EveryHours{count}); }

Date Schedule::nextRun(Date after, const Calendar& calendar) const {
  if (std::abs(wholeUnixSeconds(after)) >= kCalendarLimit) throwOutsideCalendar();
  return std::visit([&](const auto& rule) { return nextRunOf(rule, after, calendar); }, rule_);
}

std::string Schedule::description() const {
  return std::visit([](const auto& rule) { return textOf(rule); }, rule_);
}

}  // namespace molvane

std::size_t std::hash<molvane::Schedule>::operator()(const molvane::Schedule& schedule) const {
  using molvane::hashOf;
  using molvane::Schedule;
  struct Hash {
    std::size_t operator()(const Schedule::Daily& daily) const {
      return molvane::hashCombined({0, hashOf(daily.hour), hashOf(daily.minute)});
    }
    std::size_t operator()(const Schedule::Weekly& weekly) const {
      return molvane::hashCombined({1, hashOf(weekly.weekday), hashOf(weekly.hour), hashOf(weekly.minute)});
    }
    std::size_t operator()(const Schedule::EveryHours& every) const {
      return molvane::hashCombined({2, hashOf(every.count)});
    }
  };
  return std::visit(Hash(), schedule.rule());
}
