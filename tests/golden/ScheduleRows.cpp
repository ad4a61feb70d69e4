#include <gtest/gtest.h>

#include "Core/Scheduling/ScheduledTask.hpp"
#include "GoldenRows.hpp"

namespace molvane::golden {
namespace {

TEST(Golden, Schedule) {
  checkRows("schedule.jsonl", [](Row& row) {
    const std::optional<TimeZone> zone = TimeZone::named(row.fields().at("zone").get<std::string>());
    if (!zone) return row.fail("no such zone");
    const Calendar calendar(*zone, row.fields().at("firstWeekday"), row.fields().at("minDays"));
    const auto schedule = decodedJson<Schedule>(row.fields().at("schedule").get<std::string>());
    const Date after = Date::fromUnixSeconds(row.fields().at("after"));
    row.expect("next", schedule.nextRun(after, calendar).unixSeconds());
  });
}

TEST(GoldenJson, Schedule) { checkJsonRows<Schedule>("Schedule"); }

}  // namespace
}  // namespace molvane::golden
