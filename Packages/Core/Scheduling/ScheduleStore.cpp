#include "Core/Scheduling/ScheduleStore.hpp"

#include <algorithm>
#include <utility>

#include "Core/Scheduling/ScheduleFile.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/SafeFile.hpp"

namespace molvane {

namespace {

/// Runs of one task are at least some minutes apart, so this takes no run away.
constexpr double kEarlyRun = 60;

Date later(Date date, double seconds) { return {date.secondsSinceReference + seconds}; }

template <typename Tasks>
auto find(Tasks& tasks, const Uuid& id) {
  return std::find_if(tasks.begin(), tasks.end(), [&id](const auto& task) { return task->id == id; });
}

/// The file that a path leads to from here, whether it exists or not: what a link points at is replaced, not
/// the link, and the process may go to another folder.
std::filesystem::path placeOf(const std::filesystem::path& file) {
  constexpr int kMostLinks = 40;
  std::filesystem::path place = std::filesystem::weakly_canonical(std::filesystem::absolute(file));
  for (int i = 0; i < kMostLinks && std::filesystem::is_symlink(place); ++i)
    place = std::filesystem::weakly_canonical(place.parent_path() / std::filesystem::read_symlink(place));
  return place;
}

FileDescriptor folderOf(const std::filesystem::path& file) { return openFolder(file.parent_path()); }

}  // namespace

ScheduleStore::ScheduleStore(std::optional<std::filesystem::path> fileURL, Calendar calendar)
    : tasks_(std::make_shared<const Tasks>()), calendar_(std::move(calendar)) {
  if (!fileURL) return;
  fileURL_ = placeOf(*fileURL);
  load();
}

void ScheduleStore::load() {
  try {
    std::optional<std::vector<ScheduledTask>> read = readScheduleFile(fileURL_->string());
    if (!read) return;
    Tasks tasks;
    for (ScheduledTask& task : *read) tasks.push_back(std::make_shared<const ScheduledTask>(std::move(task)));
    const MutexLock lock(lock_);
    tasks_ = std::make_shared<const Tasks>(std::move(tasks));
  } catch (const BrokenScheduleFile& broken) {
    const std::string name = setFileAside(folderOf(*fileURL_), fileURL_->filename().string());
    brokenFile_ = BrokenFile{fileURL_->parent_path() / name, broken.what()};
  }
}

std::shared_ptr<const ScheduleStore::Tasks> ScheduleStore::snapshot() const {
  const MutexLock lock(lock_);
  return tasks_;
}

void ScheduleStore::commit(Tasks tasks) {
  persist(tasks);
  auto replacement = std::make_shared<const Tasks>(std::move(tasks));
  const MutexLock lock(lock_);
  tasks_.swap(replacement);
}

void ScheduleStore::persist(const Tasks& tasks) {
  if (!fileURL_) return;
  constexpr mode_t kOwnerOnly = 0600;
  const FileDescriptor folder = folderOf(*fileURL_);
  const std::string name = fileURL_->filename().string();
  // Not before a change is made: who only looks may do so beside a writer.
  if (!std::exchange(tidied_, true)) removeAbandonedTemporaries(folder, name);
  replaceFile(folder, name, encodedScheduleFile(tasks), kOwnerOnly);
}

std::vector<ScheduledTask> ScheduleStore::tasks() const {
  std::vector<ScheduledTask> all;
  // Held by a name: a temporary would be gone before the first turn of the loop.
  const std::shared_ptr<const Tasks> tasks = snapshot();
  for (const auto& task : *tasks) all.push_back(*task);
  return all;
}

void ScheduleStore::upsert(ScheduledTask task) {
  const MutexLock changing(changing_);
  Tasks tasks = *snapshot();
  const auto found = find(tasks, task.id);
  auto added = std::make_shared<const ScheduledTask>(std::move(task));
  if (found == tasks.end()) {
    tasks.push_back(std::move(added));
  } else {
    *found = std::move(added);
  }
  commit(std::move(tasks));
}

bool ScheduleStore::remove(const Uuid& id) {
  const MutexLock changing(changing_);
  Tasks tasks = *snapshot();
  const auto found = find(tasks, id);
  if (found == tasks.end()) return false;
  tasks.erase(found);
  commit(std::move(tasks));
  return true;
}

std::vector<ScheduledTask> ScheduleStore::due(Date now, double missedGrace) const {
  std::vector<ScheduledTask> result;
  const std::shared_ptr<const Tasks> tasks = snapshot();
  for (const auto& task : *tasks) {
    if (task->isDue(now, missedGrace)) result.push_back(*task);
  }
  return result;
}

bool ScheduleStore::markRun(const Uuid& id, Date at, std::optional<RunOutcome> outcome) {
  const MutexLock changing(changing_);
  Tasks tasks = *snapshot();
  const auto found = find(tasks, id);
  if (found == tasks.end()) return false;

  ScheduledTask task = **found;
  task.lastRun = at;
  task.lastOutcome = std::move(outcome);
  const std::optional<Date> planned = task.nextRun;
  const bool isPlannedRun = planned && *planned <= later(at, kEarlyRun);
  task.nextRun = task.schedule.nextRun(isPlannedRun ? std::max(at, *planned) : at, calendar_);
  if (planned && !isPlannedRun) task.nextRun = std::max(*task.nextRun, *planned);
  *found = std::make_shared<const ScheduledTask>(std::move(task));
  commit(std::move(tasks));
  return true;
}

std::vector<ScheduledTask> ScheduleStore::skipMissed(Date now, double missedGrace) {
  const MutexLock changing(changing_);
  Tasks tasks = *snapshot();
  std::vector<ScheduledTask> missed;
  for (auto& task : tasks) {
    if (!task->isMissed(now, missedGrace)) continue;
    missed.push_back(*task);
    ScheduledTask moved = *task;
    moved.nextRun = task->schedule.nextRun(now, calendar_);
    task = std::make_shared<const ScheduledTask>(std::move(moved));
  }
  if (!missed.empty()) commit(std::move(tasks));
  return missed;
}

}  // namespace molvane
