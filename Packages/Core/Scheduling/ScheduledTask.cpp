#include "Core/Scheduling/ScheduledTask.hpp"

#include <utility>

#include "Base/HashCombine.hpp"

namespace molvane {

ScheduledTask::ScheduledTask(Uuid id, std::string title, std::string toolID, std::string actionID,
                             std::map<std::string, std::string> payload, Schedule schedule, bool isEnabled,
                             bool runIfMissed, std::optional<Date> lastRun, std::optional<Date> nextRun,
                             std::optional<std::string> company)
    : id(id),
      title(std::move(title)),
      toolID(std::move(toolID)),
      actionID(std::move(actionID)),
      payload(std::move(payload)),
      schedule(schedule),
      isEnabled(isEnabled),
      runIfMissed(runIfMissed),
      lastRun(lastRun),
      nextRun(nextRun),
      company(std::move(company)) {}

bool ScheduledTask::hasCome(Date now) const noexcept { return isEnabled && nextRun && *nextRun <= now; }

bool ScheduledTask::isMissed(Date now, double missedGrace) const noexcept {
  if (!hasCome(now) || runIfMissed) return false;
  const double late = now.secondsSinceReference - nextRun->secondsSinceReference;
  // Said so that no run is within a grace that is no number.
  return !(late <= missedGrace);
}

}  // namespace molvane

std::size_t std::hash<molvane::ScheduledTask>::operator()(const molvane::ScheduledTask& task) const {
  // What tells tasks apart in practice; equal tasks agree in it.
  return molvane::hashCombined({molvane::hashOf(task.id.text()), molvane::hashOf(task.title),
                                molvane::hashOf(task.schedule), molvane::hashOf(task.isEnabled)});
}
