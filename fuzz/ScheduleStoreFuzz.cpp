#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "Core/Scheduling/KeptTask.hpp"
#include "Core/Scheduling/ScheduleFile.hpp"
#include "Core/Scheduling/ScheduleStore.hpp"

// Any bytes as a file of tasks: refused, or read as tasks that are written and read again as the same and
// that the store can work with.

namespace {

using namespace molvane;

void require(bool holds) {
  if (!holds) std::abort();
}

void workWith(const std::vector<KeptTask>& tasks) {
  static const Calendar calendar(*TimeZone::named("Europe/Berlin"));
  constexpr Date kNow{800000000};
  ScheduleStore store(std::nullopt, calendar);
  for (const auto& [task, unknownMembers] : tasks) {
    require(!task.schedule.description().empty());
    store.upsert(task);
    require(store.markRun(task.id, kNow, RunOutcome{}));
    require(*store.tasks().back().nextRun > kNow);
  }
  require(store.due(kNow, 0).empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<KeptTask> tasks;
  try {
    tasks = decodedScheduleFile({reinterpret_cast<const char*>(data), size});
  } catch (const BrokenScheduleFile&) {
    return 0;
  } catch (const NewerScheduleFile&) {
    return 0;
  }
  std::vector<std::shared_ptr<const KeptTask>> shared;
  for (const KeptTask& kept : tasks) shared.push_back(std::make_shared<const KeptTask>(kept));
  require(decodedScheduleFile(encodedScheduleFile(shared)) == tasks);
  workWith(tasks);
  return 0;
}
