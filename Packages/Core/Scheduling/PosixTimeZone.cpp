#include "Core/Scheduling/PosixTimeZone.hpp"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string>
#include <utility>

#include "Base/Ascii.hpp"

namespace molvane {

namespace {

constexpr std::int32_t kSecondsPerHour = 3600;
constexpr std::int32_t kSecondsPerDay = 86400;
constexpr int kMostHoursOfOffset = 24;
constexpr int kMostHoursOfTime = 167;

}  // namespace

/// Reads a rule from left to right. Every step answers nothing, or false, when the text does not go on as it
/// must.
class PosixTimeZoneReader {
 public:
  explicit PosixTimeZoneReader(std::string_view text) : rest_(text) {}

  std::optional<PosixTimeZone> read() {
    PosixTimeZone zone;
    if (!skipName()) return std::nullopt;
    const std::optional<std::int32_t> west = readTime(kMostHoursOfOffset);
    if (!west) return std::nullopt;
    zone.standardOffset_ = -*west;
    if (rest_.empty()) return zone;
    zone.daylight_ = readDaylight(zone.standardOffset_);
    if (!zone.daylight_ || !rest_.empty()) return std::nullopt;
    return zone;
  }

 private:
  using YearlyMoment = PosixTimeZone::YearlyMoment;

  std::optional<PosixTimeZone::Daylight> readDaylight(std::int32_t standardOffset) {
    PosixTimeZone::Daylight daylight;
    if (!skipName()) return std::nullopt;
    daylight.offset = standardOffset + kSecondsPerHour;
    if (!rest_.empty() && rest_.front() != ',') {
      const std::optional<std::int32_t> west = readTime(kMostHoursOfOffset);
      if (!west) return std::nullopt;
      daylight.offset = -*west;
    }
    if (rest_.empty()) rest_ = ",M3.2.0,M11.1.0";
    const std::optional<YearlyMoment> start = readMoment();
    const std::optional<YearlyMoment> end = start ? readMoment() : std::nullopt;
    if (!end) return std::nullopt;
    daylight.start = *start;
    daylight.end = *end;
    return daylight;
  }

  bool skipName() {
    constexpr std::size_t kFewestLetters = 3;
    if (take('<')) {
      const std::size_t length = rest_.find('>');
      if (length == std::string_view::npos || length == 0) return false;
      rest_.remove_prefix(length + 1);
      return true;
    }
    const auto letters =
        static_cast<std::size_t>(std::find_if_not(rest_.begin(), rest_.end(), isAsciiLetter) - rest_.begin());
    rest_.remove_prefix(letters);
    return letters >= kFewestLetters;
  }

  std::optional<std::int32_t> readTime(int mostHours) {
    const bool negative = take('-');
    if (!negative) take('+');
    const std::optional<int> hours = readNumber(0, mostHours);
    if (!hours) return std::nullopt;
    std::int32_t seconds = *hours * kSecondsPerHour;
    for (const std::int32_t unit : {60, 1}) {
      if (!take(':')) break;
      const std::optional<int> number = readNumber(0, 59);
      if (!number) return std::nullopt;
      seconds += *number * unit;
    }
    return negative ? -seconds : seconds;
  }

  std::optional<YearlyMoment> readMoment() {
    if (!take(',')) return std::nullopt;
    YearlyMoment moment;
    const bool readDay = take('M') ? readWeekdayOfMonth(moment) : readDayOfYear(moment);
    if (!readDay) return std::nullopt;
    moment.secondOfDay = 2 * kSecondsPerHour;
    if (take('/')) {
      const std::optional<std::int32_t> time = readTime(kMostHoursOfTime);
      if (!time) return std::nullopt;
      moment.secondOfDay = *time;
    }
    return moment;
  }

  bool readWeekdayOfMonth(YearlyMoment& moment) {
    moment.kind = YearlyMoment::Kind::weekdayOfMonth;
    const std::optional<int> month = readNumber(1, 12);
    const std::optional<int> week = month && take('.') ? readNumber(1, 5) : std::nullopt;
    const std::optional<int> day = week && take('.') ? readNumber(0, 6) : std::nullopt;
    if (!day) return false;
    moment.month = *month;
    moment.week = *week;
    moment.day = *day;
    return true;
  }

  bool readDayOfYear(YearlyMoment& moment) {
    const bool julian = take('J');
    moment.kind = julian ? YearlyMoment::Kind::julianWithoutLeapDay : YearlyMoment::Kind::dayOfYear;
    const std::optional<int> day = readNumber(julian ? 1 : 0, 365);
    if (day) moment.day = *day;
    return day.has_value();
  }

  std::optional<int> readNumber(int least, int most) {
    constexpr std::size_t kMostDigits = 3;
    int value = 0;
    std::size_t digits = 0;
    for (; digits < rest_.size() && isAsciiDigit(rest_[digits]); ++digits) {
      if (digits == kMostDigits) return std::nullopt;
      value = value * 10 + (rest_[digits] - '0');
    }
    rest_.remove_prefix(digits);
    if (digits == 0 || value < least || value > most) return std::nullopt;
    return value;
  }

  bool take(char expected) {
    if (rest_.empty() || rest_.front() != expected) return false;
    rest_.remove_prefix(1);
    return true;
  }

  std::string_view rest_;
};

std::optional<PosixTimeZone> PosixTimeZone::parse(std::string_view text) {
  return PosixTimeZoneReader(text).read();
}

std::int64_t PosixTimeZone::wallSeconds(const YearlyMoment& moment, int year) {
  using namespace std::chrono;
  const std::chrono::year theYear(year);
  const sys_days newYear(theYear / January / 1);
  sys_days day = newYear;
  switch (moment.kind) {
    case YearlyMoment::Kind::dayOfYear:
      day = newYear + days(moment.day);
      break;
    case YearlyMoment::Kind::julianWithoutLeapDay: {
      constexpr int kLastDayOfFebruary = 59;
      const bool afterLeapDay = theYear.is_leap() && moment.day > kLastDayOfFebruary;
      day = newYear + days(moment.day - 1 + (afterLeapDay ? 1 : 0));
      break;
    }
    case YearlyMoment::Kind::weekdayOfMonth: {
      const year_month month = theYear / std::chrono::month(static_cast<unsigned>(moment.month));
      const weekday wanted(static_cast<unsigned>(moment.day));
      constexpr int kLastWeek = 5;
      day = moment.week == kLastWeek ? sys_days(month / wanted[last])
                                     : sys_days(month / wanted[static_cast<unsigned>(moment.week)]);
      break;
    }
  }
  return static_cast<std::int64_t>(day.time_since_epoch().count()) * kSecondsPerDay + moment.secondOfDay;
}

std::array<PosixTimeZone::Transition, 2> PosixTimeZone::transitions(int year) const {
  const Transition start{wallSeconds(daylight_->start, year) - standardOffset_, daylight_->offset};
  const Transition end{wallSeconds(daylight_->end, year) - daylight_->offset, standardOffset_};
  if (end.at < start.at) return {end, start};
  return {start, end};
}

}  // namespace molvane
