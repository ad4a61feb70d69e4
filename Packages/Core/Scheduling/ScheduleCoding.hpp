#pragma once

#include "Base/Json.hpp"

// Inside Scheduling only; the coding of schedules and tasks themselves stands in ScheduledTask.hpp.

namespace molvane {

/// Whether `json` is an object with a kind of schedule, or a value of a kind, that this version does not
/// know.
[[nodiscard]] bool holdsUnknownSchedule(const JsonValue& json);

}  // namespace molvane
