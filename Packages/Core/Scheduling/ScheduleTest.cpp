#include "Core/Scheduling/Schedule.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Base/JsonCoding.hpp"
#include "Core/Scheduling/ScheduledTask.hpp"

namespace molvane {
namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

/// What the zone's clocks show: the moment of "2026-03-08 02:30:00" in it.
Date moment(const Calendar& calendar, const std::string& text) {
  const auto number = [&](std::size_t at, std::size_t length) { return std::stoi(text.substr(at, length)); };
  return calendar.date(Calendar::Day{number(0, 4), number(5, 2), number(8, 2)},
                       {number(11, 2), number(14, 2), number(17, 2)});
}

struct NextRunCase {
  const char* zone;
  Schedule schedule;
  const char* after;
  const char* next;
};

TEST(Schedule, NextRunByTheClocksOfTheZone) {
  const std::vector<NextRunCase> runs = {
      {"UTC", Schedule::daily(9, 0), "2026-11-22 08:59:59", "2026-11-22 09:00:00"},
      {"UTC", Schedule::daily(9, 0), "2026-11-22 09:00:00", "2026-11-23 09:00:00"},
      {"UTC", Schedule::daily(0, 0), "2026-12-31 23:59:59", "2027-01-01 00:00:00"},
      // 22 November 2026 is a Sunday.
      {"UTC", Schedule::weekly(1, 18, 30), "2026-11-22 18:29:59", "2026-11-22 18:30:00"},
      {"UTC", Schedule::weekly(1, 18, 30), "2026-11-22 18:30:00", "2026-11-29 18:30:00"},
      {"UTC", Schedule::weekly(7, 18, 30), "2026-11-22 18:30:00", "2026-11-28 18:30:00"},
      // The clocks skip 02:00 to 03:00 on 8 March and show 01:00 to 02:00 twice on 1 November.
      {"America/New_York", Schedule::daily(2, 30), "2026-03-08 01:59:59", "2026-03-08 03:30:00"},
      {"America/New_York", Schedule::daily(2, 30), "2026-03-07 12:00:00", "2026-03-08 03:30:00"},
      {"America/New_York", Schedule::daily(2, 30), "2026-03-08 12:00:00", "2026-03-09 03:30:00"},
      {"America/New_York", Schedule::daily(2, 30), "2026-03-09 03:30:00", "2026-03-10 02:30:00"},
      {"America/New_York", Schedule::daily(12, 0), "2026-10-31 12:00:00", "2026-11-01 12:00:00"},
      // Friday, 30 December 2011 was left out there.
      {"Pacific/Apia", Schedule::daily(9, 0), "2011-12-29 09:00:00", "2011-12-31 09:00:00"},
      {"UTC", Schedule::everyHours(6), "2026-11-22 01:02:03", "2026-11-22 07:02:03"},
      {"UTC", Schedule::everyHours(0), "2026-11-22 01:02:03", "2026-11-22 02:02:03"},
      {"UTC", Schedule::everyHours(-3), "2026-11-22 01:02:03", "2026-11-22 02:02:03"},
  };
  for (const NextRunCase& run : runs) {
    const Calendar calendar(*TimeZone::named(run.zone));
    EXPECT_EQ(run.schedule.nextRun(moment(calendar, run.after), calendar), moment(calendar, run.next))
        << run.schedule.description() << " in " << run.zone << " after " << run.after;
  }
  const Calendar newYork(*TimeZone::named("America/New_York"));
  const Date firstHalfPastOne = moment(newYork, "2026-11-01 01:30:00");
  const Date secondHalfPastOne = Date::fromUnixSeconds(firstHalfPastOne.unixSeconds() + 3600);
  for (const Date after : {firstHalfPastOne, secondHalfPastOne}) {
    EXPECT_EQ(Schedule::daily(1, 30).nextRun(after, newYork), moment(newYork, "2026-11-02 01:30:00"));
  }
}

// Half of the moments lie around one at which the zone's clocks went back across midnight.
TEST(Schedule, NextRunIsLaterAndNeverFarOff) {
  constexpr std::int64_t kDay = 86400;
  constexpr std::int64_t kHour = 3600;
  std::mt19937_64 random(11);
  const auto between = [&random](std::int64_t least, std::int64_t most) {
    return std::uniform_int_distribution<std::int64_t>(least, most)(random);
  };
  const std::vector<std::pair<const char*, std::int64_t>> zones = {
      {"America/St_Johns", 1289097060},  // 2010-11-07, an hour from 00:01
      {"Antarctica/Casey", 1267714800},  // 2010-03-05, three hours from 02:00
      {"Pacific/Apia", -2445424384},     // 1892-07-05, the whole day
      {"Africa/Cairo", 1761858000},      // 2025-10-31, an hour from 00:00
      {"Australia/Lord_Howe", 0}};
  for (const auto& [zone, fold] : zones) {
    for (int i = 0; i < 8000; ++i) {
      const Calendar calendar(*TimeZone::named(zone), static_cast<int>(between(1, 7)),
                              static_cast<int>(between(1, 7)));
      const std::int64_t moment = i % 4 < 2 ? between(0, 4000000000) : fold + between(-3 * kHour, 3 * kHour);
      const auto after = Date::fromUnixSeconds(static_cast<double>(moment) + 0.5);
      const bool weekly = i % 2 == 0;
      const std::int64_t weekday = calendar.weekday(after) + between(0, 3);
      const std::int64_t hour = (calendar.time(after).hour + between(22, 26)) % 24;
      const Schedule schedule = weekly ? Schedule::weekly(weekday % 7 + 1, hour, between(0, 59))
                                       : Schedule::daily(hour, between(0, 59));
      const Date next = schedule.nextRun(after, calendar);
      ASSERT_GT(next, after) << schedule.description() << ' ' << zone << " after " << moment;
      // A day that the clocks left out, or showed twice, and a change of the clocks come on top.
      ASSERT_LE(next.unixSeconds() - after.unixSeconds(), (weekly ? 7 : 1) * kDay + kDay + 2 * kHour)
          << schedule.description() << ' ' << zone << " after " << moment;
    }
  }
}

TEST(Schedule, AnyNumberIsAccepted) {
  const Calendar calendar(*TimeZone::named("Europe/Berlin"));
  const Date after = moment(calendar, "2026-11-22 12:00:00");
  for (const std::int64_t number : {kMost, kLeast, std::int64_t{0}, std::int64_t{-1}, std::int64_t{100}}) {
    for (const Schedule& schedule : {Schedule::daily(number, number), Schedule::weekly(number, number, kMost),
                                     Schedule::weekly(3, 4, number), Schedule::everyHours(number)}) {
      EXPECT_GT(schedule.nextRun(after, calendar), after);
      EXPECT_FALSE(schedule.description().empty());
      for (const double beyond : {std::nan(""), 1e300, -1e300}) {
        EXPECT_THROW((void)schedule.nextRun({beyond}, calendar), std::out_of_range);
      }
    }
  }
  EXPECT_EQ(Schedule::daily(25, 61).nextRun(after, calendar), moment(calendar, "2026-11-23 02:01:00"));
}

TEST(Schedule, ReadsAsAPersonWouldSayIt) {
  const std::vector<std::pair<Schedule, std::string>> texts = {
      {Schedule::daily(9, 0), "Every day at 09:00"},
      {Schedule::weekly(2, 18, 30), "Every Monday at 18:30"},
      {Schedule::weekly(7, 0, 5), "Every Saturday at 00:05"},
      {Schedule::everyHours(1), "Every hour"},
      {Schedule::everyHours(-3), "Every hour"},
      {Schedule::everyHours(6), "Every 6 hours"},
      {Schedule::daily(25, -1), "Every day at 00:59"},
      {Schedule::weekly(7, 23, 60), "Every Sunday at 00:00"},
      {Schedule::weekly(8, -1, 0), "Every Saturday at 23:00"},
  };
  for (const auto& [schedule, text] : texts) EXPECT_EQ(schedule.description(), text);
}

TEST(Schedule, JsonForm) {
  const std::vector<std::pair<Schedule, std::string>> documents = {
      {Schedule::daily(9, 5), R"({"daily":{"hour":9,"minute":5}})"},
      {Schedule::weekly(2, 18, 30), R"({"weekly":{"weekday":2,"hour":18,"minute":30}})"},
      {Schedule::everyHours(kLeast), R"({"everyHours":{"_0":-9223372036854775808}})"},
  };
  for (const auto& [schedule, document] : documents) {
    EXPECT_EQ(encodedJson(schedule), document);
    EXPECT_EQ(decodedJson<Schedule>(document), schedule);
  }
  for (const char* const document : {R"({})", R"({"daily":{"hour":9,"minute":5},"everyHours":{"_0":1}})"}) {
    try {
      (void)decodedJson<Schedule>(document);
      ADD_FAILURE() << document;
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.which(), DecodingFailure::typeMismatch);
      EXPECT_EQ(error.payload().debugDescription, "Invalid number of keys found, expected one.");
    }
  }
}

TEST(Schedule, TasksAreValues) {
  const Uuid id = Uuid::random();
  ScheduledTask task(id, "Clean", "cleaner", "run", {{"depth", "2"}}, Schedule::weekly(2, 3, 4), true, false,
                     Date{100.25}, Date{200}, "company");
  EXPECT_EQ(task.lastOutcome, std::nullopt);
  task.lastOutcome = RunOutcome{"success"};
  const std::string document = encodedJson(task);
  EXPECT_EQ(document, R"({"id":")" + id.text() +
                          R"(","title":"Clean","toolID":"cleaner","actionID":"run","payload":{"depth":"2"},)"
                          R"("schedule":{"weekly":{"weekday":2,"hour":3,"minute":4}},"isEnabled":true,)"
                          R"("runIfMissed":false,"lastRun":100.25,"lastOutcome":"success","nextRun":200,)"
                          R"("company":"company"})");
  EXPECT_EQ(decodedJson<ScheduledTask>(document), task);

  ScheduledTask bare;
  EXPECT_EQ(decodedJson<ScheduledTask>(encodedJson(bare)), bare);
  EXPECT_EQ(encodedJson(bare).find("null"), std::string::npos);
  EXPECT_EQ((std::unordered_set<ScheduledTask>{task, bare, decodedJson<ScheduledTask>(document)}.size()), 2U);
  for (const char* const damaged : {R"("id":"x")", R"("payload":{"depth":2})", R"("isEnabled":1)"}) {
    EXPECT_THROW((void)decodedJson<ScheduledTask>("{" + std::string(damaged) + "," + document.substr(1)),
                 DecodingError)
        << damaged;
  }
}

}  // namespace
}  // namespace molvane
