#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <variant>

#include "Base/Date.hpp"
#include "Core/Scheduling/Calendar.hpp"

namespace molvane {

/// When a task runs: every day or every week at a time, or every so many hours. A plain value.
///
/// Any number is accepted. Hours and minutes beyond a day carry over, a weekday beyond 1 to 7 counts round,
/// and a count of hours below 1 means 1.
class Schedule {
 public:
  struct Daily {
    std::int64_t hour = 0;
    std::int64_t minute = 0;

    bool operator==(const Daily&) const = default;
  };

  struct Weekly {
    std::int64_t weekday = 1;  ///< 1 is Sunday
    std::int64_t hour = 0;
    std::int64_t minute = 0;

    bool operator==(const Weekly&) const = default;
  };

  struct EveryHours {
    std::int64_t count = 1;

    bool operator==(const EveryHours&) const = default;
  };

  using Rule = std::variant<Daily, Weekly, EveryHours>;

  [[nodiscard]] static Schedule daily(std::int64_t hour, std::int64_t minute);
  [[nodiscard]] static Schedule weekly(std::int64_t weekday, std::int64_t hour, std::int64_t minute);
  [[nodiscard]] static Schedule everyHours(std::int64_t count);

  Schedule() = default;
  explicit Schedule(Rule rule) noexcept : rule_(rule) {}
  [[nodiscard]] const Rule& rule() const noexcept { return rule_; }

  /// The next run, which is always later than `after`: a run at `after` itself counts as done. Throws
  /// std::out_of_range when `after` is no number or lies outside the calendar's range or in its last week.
  ///
  /// Where the clocks skip the time, the run comes as much later as they skip; where they show it twice, at
  /// the first.
  [[nodiscard]] Date nextRun(Date after, const Calendar& calendar) const;

  /// The schedule for the person: "Every day at 09:00", "Every Monday at 18:30", "Every 6 hours".
  [[nodiscard]] std::string description() const;

  bool operator==(const Schedule&) const = default;

 private:
  Rule rule_ = Daily{};
};

}  // namespace molvane

template <>
struct std::hash<molvane::Schedule> {
  std::size_t operator()(const molvane::Schedule& schedule) const;
};
