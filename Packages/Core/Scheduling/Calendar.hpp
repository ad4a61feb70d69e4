#pragma once

#include <cstdint>

#include "Base/Date.hpp"
#include "Core/Scheduling/TimeZone.hpp"

namespace molvane {

/// The Gregorian calendar in a time zone, with a rule of what a week is. A plain value; any thread may use
/// one.
///
/// Times of day that the clocks skip are read as if they had not been put forward: 02:30 in an hour skipped
/// from 02:00 to 03:00 is 03:30. Of a time that the clocks show twice the first is meant. Dates are
/// proleptic: no Julian days. Moments further than 30,000 years from 1970 count as the last ones within;
/// nothing throws for its range.
class Calendar {
 public:
  /// `firstWeekday` is the day on which weeks begin, 1 for Sunday to 7 for Saturday.
  /// `minimumDaysInFirstWeek`, 1 to 7, is how many days of a week must lie in a year for it to be that year's
  /// first. Monday and 4 make the weeks of ISO 8601. Throws std::invalid_argument outside these ranges.
  explicit Calendar(TimeZone timeZone, int firstWeekday = 1, int minimumDaysInFirstWeek = 1);

  /// In the current time zone (TimeZone::current, taken now), with weeks from Sunday.
  [[nodiscard]] static Calendar current();

  [[nodiscard]] const TimeZone& timeZone() const noexcept { return timeZone_; }
  [[nodiscard]] int firstWeekday() const noexcept { return firstWeekday_; }
  [[nodiscard]] int minimumDaysInFirstWeek() const noexcept { return minimumDaysInFirstWeek_; }

  struct Day {
    int year = 1970;
    int month = 1;  ///< 1 to 12
    int day = 1;    ///< 1 to 31

    bool operator==(const Day&) const = default;
  };

  struct Week {
    int yearForWeekOfYear = 1970;
    int weekOfYear = 1;  ///< 1 to 53

    bool operator==(const Week&) const = default;
  };

  /// A time of day. Hours and minutes beyond their usual range carry over into other days.
  struct Time {
    std::int64_t hour = 0;
    std::int64_t minute = 0;
    std::int64_t second = 0;

    bool operator==(const Time&) const = default;
  };

  [[nodiscard]] Day day(Date date) const noexcept;
  [[nodiscard]] Week week(Date date) const noexcept;
  [[nodiscard]] Time time(Date date) const noexcept;
  /// 1 for Sunday to 7 for Saturday.
  [[nodiscard]] int weekday(Date date) const noexcept;

  /// The moment at which that time begins on that day, which must exist.
  [[nodiscard]] Date date(const Day& day, const Time& time) const noexcept;
  /// The same on the day of that week; a weekday beyond 1 to 7 counts round.
  [[nodiscard]] Date date(const Week& week, std::int64_t weekday, const Time& time) const noexcept;

  /// The same time of day so many days later. Where the clocks were moved by whole days, as at the date line,
  /// those days are counted although no calendar shows them.
  [[nodiscard]] Date addingDays(Date date, int days) const noexcept;

  bool operator==(const Calendar&) const = default;

 private:
  [[nodiscard]] std::int64_t wallSeconds(Date date) const noexcept;
  /// Number of the day, counted from 1970, on which that year's first week begins.
  [[nodiscard]] std::int64_t firstDayOfWeekYear(int year) const noexcept;
  [[nodiscard]] Date dateOnDay(std::int64_t dayNumber, const Time& time) const noexcept;

  TimeZone timeZone_;
  int firstWeekday_;
  int minimumDaysInFirstWeek_;
};

}  // namespace molvane
