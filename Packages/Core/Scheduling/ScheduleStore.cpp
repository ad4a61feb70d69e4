#include "Core/Scheduling/ScheduleStore.hpp"

#include <algorithm>
#include <utility>

#include "Core/Scheduling/KeptTask.hpp"
#include "Core/Scheduling/ScheduleFile.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/LockFile.hpp"

namespace molvane {

namespace {

/// Runs of one task are at least some minutes apart, so this takes no run away.
constexpr double kEarlyRun = 60;

Date later(Date date, double seconds) { return {date.secondsSinceReference + seconds}; }

template <typename Tasks>
auto find(Tasks& tasks, const Uuid& id) {
  return std::find_if(tasks.begin(), tasks.end(), [&id](const auto& kept) { return kept->task.id == id; });
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

/// How long a change waits while another store changes the file, in seconds.
constexpr double kPatience = 30;

std::string lockPathOf(const std::filesystem::path& file) {
  return file.parent_path() / ("." + file.filename().string() + ".lock");
}

}  // namespace

/// The tasks, and the file in which they stand.
struct ScheduleStore::List {
  Tasks tasks;
  HeldFile file;
};

ScheduleStore::ScheduleStore(std::optional<std::filesystem::path> fileURL, Calendar calendar)
    : list_(std::make_shared<const List>()), calendar_(std::move(calendar)) {
  if (!fileURL) return;
  fileURL_ = placeOf(*fileURL);
  try {
    (void)current();
  } catch (const BrokenScheduleFile&) {
    setBrokenFileAside();
  }
}

void ScheduleStore::setBrokenFileAside() {
  const LockFile fileLock(lockPathOf(*fileURL_), kPatience);
  try {
    (void)current();  // another store may have been faster
  } catch (const BrokenScheduleFile& broken) {
    const FileDescriptor folder = openFolder(fileURL_->parent_path());
    const std::string name = setFileAside(folder, fileURL_->filename().string());
    brokenFile_ = BrokenFile{fileURL_->parent_path() / name, broken.what()};
  }
}

std::shared_ptr<const ScheduleStore::List> ScheduleStore::known() const {
  const MutexLock lock(lock_);
  return list_;
}

// The list as it stands in the file by now. Of two threads that read at the same time the slower may publish
// an older list; that is no harm, since what is known counts only as long as its file is the one at the
// place.
std::shared_ptr<const ScheduleStore::List> ScheduleStore::current() const {
  std::shared_ptr<const List> list = known();
  if (!fileURL_ || isAt(*fileURL_, list->file)) return list;
  std::optional<HeldTasks> read = readAndHoldTasks(*fileURL_);
  List fresh;
  if (read) {
    for (KeptTask& kept : read->tasks)
      fresh.tasks.push_back(std::make_shared<const KeptTask>(std::move(kept)));
    fresh.file = std::move(read->file);
  }
  return publish(std::move(fresh));
}

std::shared_ptr<const ScheduleStore::List> ScheduleStore::publish(List list) const {
  const auto published = std::make_shared<const List>(std::move(list));
  std::shared_ptr<const List> replaced = published;
  const MutexLock lock(lock_);
  list_.swap(replaced);
  return published;
}

// `apply` says whether it has changed anything.
bool ScheduleStore::change(const std::function<bool(Tasks&)>& apply) {
  const MutexLock changing(changing_);
  std::optional<LockFile> fileLock;
  if (fileURL_) fileLock.emplace(lockPathOf(*fileURL_), kPatience);
  Tasks tasks = current()->tasks;
  if (!apply(tasks)) return false;
  publish(persisted(std::move(tasks)));
  return true;
}

ScheduleStore::List ScheduleStore::persisted(Tasks tasks) {
  if (!fileURL_) return {std::move(tasks), {}};
  constexpr mode_t kOwnerOnly = 0600;
  const FileDescriptor folder = openFolder(fileURL_->parent_path());
  const std::string name = fileURL_->filename().string();
  // Only here: the file is locked, so no other store is writing such a file.
  if (!std::exchange(tidied_, true)) removeAbandonedTemporaries(folder, name);
  HeldFile written = replaceFile(folder, name, encodedScheduleFile(tasks), kOwnerOnly);
  return {std::move(tasks), std::move(written)};
}

std::vector<ScheduledTask> ScheduleStore::tasks() const {
  std::vector<ScheduledTask> all;
  // Held by a name: a temporary would be gone before the first turn of the loop.
  const std::shared_ptr<const List> list = current();
  for (const auto& kept : list->tasks) all.push_back(kept->task);
  return all;
}

void ScheduleStore::upsert(ScheduledTask task) {
  change([&task](Tasks& tasks) {
    const auto found = find(tasks, task.id);
    if (found == tasks.end()) {
      tasks.push_back(std::make_shared<const KeptTask>(KeptTask{std::move(task), {}}));
    } else {
      *found = std::make_shared<const KeptTask>(KeptTask{std::move(task), (*found)->unknownMembers});
    }
    return true;
  });
}

bool ScheduleStore::remove(const Uuid& id) {
  return change([&id](Tasks& tasks) {
    const auto found = find(tasks, id);
    if (found == tasks.end()) return false;
    tasks.erase(found);
    return true;
  });
}

std::vector<ScheduledTask> ScheduleStore::due(Date now, double missedGrace) const {
  std::vector<ScheduledTask> result;
  const std::shared_ptr<const List> list = current();
  for (const auto& kept : list->tasks) {
    if (kept->task.isDue(now, missedGrace)) result.push_back(kept->task);
  }
  return result;
}

bool ScheduleStore::markRun(const Uuid& id, Date at, std::optional<RunOutcome> outcome) {
  return change([&](Tasks& tasks) {
    const auto found = find(tasks, id);
    if (found == tasks.end()) return false;

    KeptTask kept = **found;
    ScheduledTask& task = kept.task;
    task.lastRun = at;
    task.lastOutcome = std::move(outcome);
    const std::optional<Date> planned = task.nextRun;
    const bool isPlannedRun = planned && *planned <= later(at, kEarlyRun);
    task.nextRun = task.schedule.nextRun(isPlannedRun ? std::max(at, *planned) : at, calendar_);
    if (planned && !isPlannedRun) task.nextRun = std::max(*task.nextRun, *planned);
    *found = std::make_shared<const KeptTask>(std::move(kept));
    return true;
  });
}

std::vector<ScheduledTask> ScheduleStore::skipMissed(Date now, double missedGrace) {
  std::vector<ScheduledTask> missed;
  change([&](Tasks& tasks) {
    for (auto& kept : tasks) {
      if (!kept->task.isMissed(now, missedGrace)) continue;
      missed.push_back(kept->task);
      KeptTask moved = *kept;
      moved.task.nextRun = moved.task.schedule.nextRun(now, calendar_);
      kept = std::make_shared<const KeptTask>(std::move(moved));
    }
    return !missed.empty();
  });
  return missed;
}

}  // namespace molvane
