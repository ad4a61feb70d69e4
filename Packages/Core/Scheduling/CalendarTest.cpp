#include "Core/Scheduling/Calendar.hpp"

#include <gtest/gtest.h>
#include <unicode/basictz.h>
#include <unicode/gregocal.h>
#include <unicode/tztrans.h>

#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <tuple>

namespace molvane {

void PrintTo(const Calendar::Day& day, std::ostream* out) {
  *out << day.year << '-' << day.month << '-' << day.day;
}

void PrintTo(const Calendar::Week& week, std::ostream* out) {
  *out << week.yearForWeekOfYear << "-W" << week.weekOfYear;
}

namespace {

/// Zones for which the time-zone data inside ICU and that of the system are the same since 1970, with clocks
/// moved by half an hour, two hours, a whole day and the wrong way round among them.
constexpr std::array<const char*, 11> kZones = {
    "Europe/Berlin",     "America/New_York", "Australia/Lord_Howe", "Antarctica/Troll",
    "America/Sao_Paulo", "America/St_Johns", "Pacific/Apia",        "Pacific/Kiritimati",
    "Europe/Dublin",     "Asia/Kolkata",     "Pacific/Kwajalein"};

/// The same questions asked of ICU's calendar.
class Reference {
 public:
  Reference(const std::string& zone, int firstWeekday, int minimumDays)
      : zone_(dynamic_cast<icu::BasicTimeZone*>(icu::TimeZone::createTimeZone(zone.c_str()))) {
    UErrorCode status = U_ZERO_ERROR;
    calendar_ = std::make_unique<icu::GregorianCalendar>(*zone_, status);
    calendar_->setFirstDayOfWeek(static_cast<UCalendarDaysOfWeek>(firstWeekday));
    calendar_->setMinimalDaysInFirstWeek(static_cast<std::uint8_t>(minimumDays));
    calendar_->setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
    EXPECT_TRUE(U_SUCCESS(status) != 0);
  }

  void at(double unixSeconds) {
    check([&](UErrorCode& status) { calendar_->setTime(unixSeconds * 1000, status); });
  }
  void set(UCalendarDateFields field, int value) { calendar_->set(field, value); }
  void clear() { calendar_->clear(); }

  int get(UCalendarDateFields field) {
    int value = 0;
    check([&](UErrorCode& status) { value = calendar_->get(field, status); });
    return value;
  }

  double seconds() {
    double value = 0;
    check([&](UErrorCode& status) { value = calendar_->getTime(status) / 1000; });
    return value;
  }

  double addingDays(int days) {
    check([&](UErrorCode& status) { calendar_->add(UCAL_DATE, days, status); });
    return seconds();
  }

  /// Moves a moment close to the next time that the clocks are moved, if there is one.
  double nearTransition(double unixSeconds, double distance) {
    icu::TimeZoneTransition transition;
    if (zone_->getNextTransition(unixSeconds * 1000, 0, transition) == 0) return unixSeconds;
    return std::floor(transition.getTime() / 1000) + distance;
  }

 private:
  template <typename Call>
  static void check(const Call& call) {
    UErrorCode status = U_ZERO_ERROR;
    call(status);
    ASSERT_TRUE(U_SUCCESS(status) != 0) << u_errorName(status);
  }

  std::unique_ptr<icu::BasicTimeZone> zone_;
  std::unique_ptr<icu::GregorianCalendar> calendar_;
};

class Dice {
 public:
  explicit Dice(unsigned seed) : random_(seed) {}
  std::int64_t between(std::int64_t least, std::int64_t most) {
    return std::uniform_int_distribution<std::int64_t>(least, most)(random_);
  }

 private:
  std::mt19937_64 random_;
};

void compare(const Calendar& calendar, Reference& reference, double moment, Dice& dice) {
  const Date date = Date::fromUnixSeconds(moment);
  SCOPED_TRACE(testing::Message() << calendar.timeZone().identifier() << " at "
                                  << static_cast<std::int64_t>(moment) << " weeks from "
                                  << calendar.firstWeekday() << " of " << calendar.minimumDaysInFirstWeek());

  reference.at(moment);
  const Calendar::Day day{reference.get(UCAL_EXTENDED_YEAR), reference.get(UCAL_MONTH) + 1,
                          reference.get(UCAL_DATE)};
  const Calendar::Week week{reference.get(UCAL_YEAR_WOY), reference.get(UCAL_WEEK_OF_YEAR)};
  const Calendar::Time time{reference.get(UCAL_HOUR_OF_DAY), reference.get(UCAL_MINUTE),
                            reference.get(UCAL_SECOND)};
  ASSERT_EQ(calendar.day(date), day);
  ASSERT_EQ(calendar.week(date), week);
  ASSERT_EQ(calendar.time(date), time);
  ASSERT_EQ(calendar.weekday(date), reference.get(UCAL_DAY_OF_WEEK));

  const int days = static_cast<int>(dice.between(-15, 15));
  ASSERT_EQ(calendar.addingDays(date, days).unixSeconds(), reference.addingDays(days)) << days << " days";

  const Calendar::Time wanted{dice.between(-30, 60), dice.between(-90, 150)};
  reference.clear();
  reference.set(UCAL_EXTENDED_YEAR, day.year);
  reference.set(UCAL_MONTH, day.month - 1);
  reference.set(UCAL_DATE, day.day);
  reference.set(UCAL_HOUR_OF_DAY, static_cast<int>(wanted.hour));
  reference.set(UCAL_MINUTE, static_cast<int>(wanted.minute));
  ASSERT_EQ(calendar.date(day, wanted).unixSeconds(), reference.seconds())
      << wanted.hour << ':' << wanted.minute;

  const int weekday = static_cast<int>(dice.between(-3, 12));
  reference.clear();
  reference.set(UCAL_YEAR_WOY, week.yearForWeekOfYear);
  reference.set(UCAL_WEEK_OF_YEAR, week.weekOfYear);
  reference.set(UCAL_DAY_OF_WEEK, weekday);
  reference.set(UCAL_HOUR_OF_DAY, static_cast<int>(wanted.hour));
  reference.set(UCAL_MINUTE, static_cast<int>(wanted.minute));
  ASSERT_EQ(calendar.date(week, weekday, wanted).unixSeconds(), reference.seconds())
      << "weekday " << weekday << ' ' << wanted.hour << ':' << wanted.minute;
}

TEST(Calendar, AgreesWithAnotherCalendarForEveryKindOfWeek) {
  constexpr std::int64_t kYear = 31556952;
  Dice dice(5);
  for (const char* const zone : kZones) {
    for (int firstWeekday = 1; firstWeekday <= 7; ++firstWeekday) {
      for (int minimumDays = 1; minimumDays <= 7; ++minimumDays) {
        const Calendar calendar(*TimeZone::named(zone), firstWeekday, minimumDays);
        Reference reference(zone, firstWeekday, minimumDays);
        for (int i = 0; i < 60; ++i) {
          auto moment = static_cast<double>(dice.between(5 * kYear, (i % 4 == 0 ? 900 : 80) * kYear));
          if (i % 2 == 0) {
            moment =
                reference.nearTransition(moment, static_cast<double>(dice.between(-3 * 86400, 3 * 86400)));
          }
          compare(calendar, reference, moment, dice);
          if (HasFatalFailure()) return;
        }
      }
    }
  }
}

TEST(Calendar, TimeThatTheClocksSkipOrRepeat) {
  const Calendar calendar(*TimeZone::named("America/New_York"));
  const auto at = [&](Calendar::Day day, std::int64_t hour, std::int64_t minute) {
    return calendar.date(day, {hour, minute}).unixSeconds();
  };
  EXPECT_EQ(at({2026, 3, 8}, 2, 30), 1772955000);  // 03:30 EDT
  EXPECT_EQ(at({2026, 3, 8}, 3, 30), 1772955000);
  EXPECT_EQ(at({2026, 11, 1}, 1, 30), 1793511000);  // 01:30 EDT, not EST
  const Date evening = Date::fromUnixSeconds(at({2026, 3, 7}, 2, 30));
  EXPECT_EQ(calendar.time(calendar.addingDays(evening, 1)), (Calendar::Time{3, 30, 0}));
  EXPECT_EQ(calendar.time(calendar.addingDays(evening, 2)), (Calendar::Time{2, 30, 0}));
}

TEST(Calendar, MomentsOutOfRangeCountAsTheLastWithin) {
  const Calendar calendar(*TimeZone::named("Europe/Berlin"));
  constexpr double kHuge = std::numeric_limits<double>::max();
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(calendar.day({kHuge}), calendar.day({1e15}));
  EXPECT_EQ(calendar.day({-kHuge}), calendar.day({std::nan("")}));
  EXPECT_GT(calendar.day({kHuge}).year, 30000);
  EXPECT_LT(calendar.day({-kHuge}).year, -27000);
  EXPECT_GT(calendar.date(Calendar::Day{2026, 1, 1}, {kMost, kMost, kMost}), Date{9e11});
  EXPECT_LT(calendar.date(Calendar::Day{2026, 1, 1}, {kLeast, kLeast, kLeast}), Date{-9e11});
  EXPECT_GT(calendar.date(calendar.week({kHuge}), kLeast, {23, 59}), Date{9e11});
  // A fraction just short of the second does not round up into it.
  const double midnight = calendar.date(Calendar::Day{2026, 1, 1}, {}).secondsSinceReference;
  EXPECT_EQ(calendar.day({std::nextafter(midnight, 0)}), (Calendar::Day{2025, 12, 31}));
}

TEST(Calendar, WeeksHaveSevenDays) {
  const TimeZone utc = TimeZone::utc();
  for (const auto& [first, minimum] :
       {std::tuple(0, 1), std::tuple(8, 1), std::tuple(1, 0), std::tuple(1, 8)}) {
    EXPECT_THROW(Calendar(utc, first, minimum), std::invalid_argument) << first << ' ' << minimum;
  }
}

}  // namespace
}  // namespace molvane
