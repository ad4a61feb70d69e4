#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace molvane {

/// A time-zone rule as the TZ variable and the last line of a time-zone file state it, such as
/// "CET-1CEST,M3.5.0,M10.5.0/3": an offset from UTC and, if there is one, the daylight-saving time of every
/// year.
class PosixTimeZone {
 public:
  /// A moment from which another offset holds.
  struct Transition {
    std::int64_t at = 0;      ///< seconds since 1970
    std::int32_t offset = 0;  ///< seconds east of UTC from then on
  };

  /// Reads a rule; nothing for any other text. Hours up to 167 are understood on either side of zero.
  /// Daylight-saving time without dates takes the dates of the United States since 2007, as other systems do.
  [[nodiscard]] static std::optional<PosixTimeZone> parse(std::string_view text);

  /// Seconds east of UTC outside daylight-saving time.
  [[nodiscard]] std::int32_t standardOffset() const noexcept { return standardOffset_; }

  [[nodiscard]] bool hasDaylightSaving() const noexcept { return daylight_.has_value(); }

  /// Both transitions of a year (of the Gregorian calendar, from 1 to 9999), the earlier first. Only with
  /// daylight-saving time.
  [[nodiscard]] std::array<Transition, 2> transitions(int year) const;

 private:
  friend class PosixTimeZoneReader;

  /// A day of every year and a time on it.
  struct YearlyMoment {
    enum class Kind { julianWithoutLeapDay, dayOfYear, weekdayOfMonth };
    Kind kind = Kind::weekdayOfMonth;
    int month = 0;  ///< 1 to 12, of weekdayOfMonth
    int week = 0;   ///< 1 to 5, of weekdayOfMonth; 5 is the last
    int day = 0;    ///< 1 to 365, 0 to 365, or the weekday with 0 for Sunday
    std::int32_t secondOfDay = 0;
  };

  struct Daylight {
    std::int32_t offset = 0;
    YearlyMoment start;
    YearlyMoment end;
  };

  /// Seconds since 1970 of that day's local time, read as if it were UTC.
  [[nodiscard]] static std::int64_t wallSeconds(const YearlyMoment& moment, int year);

  std::int32_t standardOffset_ = 0;
  std::optional<Daylight> daylight_;
};

}  // namespace molvane
