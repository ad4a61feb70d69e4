#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "Base/Date.hpp"
#include "Base/Json.hpp"
#include "Base/Uuid.hpp"
#include "Core/Scheduling/Schedule.hpp"

namespace molvane {

/// How a run ended, by the name that the record of runs gives it. The names are the app's; any text is kept
/// as it is.
struct RunOutcome {
  std::string rawValue;

  bool operator==(const RunOutcome&) const = default;
};

/// One scheduled action of a tool. A plain value.
struct ScheduledTask {
  Uuid id;
  std::string title;                           ///< shown to the person
  std::string toolID;                          ///< of the tool that runs
  std::string actionID;                        ///< which action of the tool
  std::map<std::string, std::string> payload;  ///< the action's parameters
  Schedule schedule;
  bool isEnabled = true;     ///< a disabled task is never due
  bool runIfMissed = false;  ///< run a missed occurrence however late
  std::optional<Date> lastRun;
  std::optional<RunOutcome> lastOutcome;
  std::optional<Date> nextRun;         ///< when it is due next; nothing means never
  std::optional<std::string> company;  ///< set for tasks that come from the company configuration

  ScheduledTask() = default;
  ScheduledTask(Uuid id, std::string title, std::string toolID, std::string actionID,
                std::map<std::string, std::string> payload, Schedule schedule, bool isEnabled,
                bool runIfMissed, std::optional<Date> lastRun, std::optional<Date> nextRun,
                std::optional<std::string> company);

  /// Whether the task's next run has come by `now`: it is enabled and has a next run that is not later.
  [[nodiscard]] bool hasCome(Date now) const noexcept;
  /// Whether a run that has come is to be left out for being late: by more than `missedGrace` seconds, and
  /// the task is not to run however late.
  [[nodiscard]] bool isMissed(Date now, double missedGrace) const noexcept;
  /// Whether the task is to run at `now`.
  [[nodiscard]] bool isDue(Date now, double missedGrace) const noexcept {
    return hasCome(now) && !isMissed(now, missedGrace);
  }

  bool operator==(const ScheduledTask&) const = default;
};

// JSON form: a schedule is an object whose one key is the case ("daily", "weekly", "everyHours") and whose
// value holds the case's values ("hour", "minute"; "weekday", "hour", "minute"; "_0"). A task is an object of
// its fields under their names, absent ones left out, dates as seconds since 2001, the identifier in upper
// case. All fromJson throw a DecodingError.
void fromJson(const JsonValue& json, Schedule& schedule);
[[nodiscard]] JsonValue toJson(const Schedule& schedule);
void fromJson(const JsonValue& json, ScheduledTask& task);
[[nodiscard]] JsonValue toJson(const ScheduledTask& task);

}  // namespace molvane

template <>
struct std::hash<molvane::ScheduledTask> {
  std::size_t operator()(const molvane::ScheduledTask& task) const;
};
