#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "Core/Scheduling/ScheduleFile.hpp"
#include "Core/Scheduling/ScheduleStore.hpp"

// Any bytes as a file of tasks: refused, or read as tasks that are written and read again as the same and
// that the store can work with.

namespace {

using namespace molvane;

void require(bool holds) {
  if (!holds) std::abort();
}

void workWith(const std::vector<ScheduledTask>& tasks) {
  static const Calendar calendar(*TimeZone::named("Europe/Berlin"));
  constexpr Date kNow{800000000};
  ScheduleStore store(std::nullopt, calendar);
  for (const ScheduledTask& task : tasks) {
    require(!task.schedule.description().empty());
    store.upsert(task);
    require(store.markRun(task.id, kNow, RunOutcome{}));
    require(*store.tasks().back().nextRun > kNow);
  }
  require(store.due(kNow, 0).empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<ScheduledTask> tasks;
  try {
    tasks = decodedScheduleFile({reinterpret_cast<const char*>(data), size});
  } catch (const BrokenScheduleFile&) {
    return 0;
  }
  std::vector<std::shared_ptr<const ScheduledTask>> kept;
  for (const ScheduledTask& task : tasks) kept.push_back(std::make_shared<const ScheduledTask>(task));
  require(decodedScheduleFile(encodedScheduleFile(kept)) == tasks);
  workWith(tasks);
  return 0;
}
