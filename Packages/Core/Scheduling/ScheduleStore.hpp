#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Base/Date.hpp"
#include "Base/Mutex.hpp"
#include "Base/Uuid.hpp"
#include "Core/Scheduling/Calendar.hpp"
#include "Core/Scheduling/ScheduledTask.hpp"

namespace molvane {

/// Keeps the list of scheduled tasks, in memory and in a file, and says which are due.
///
/// Any thread may use a store. Every change is written to the file before it can be seen: the call returns
/// when it has reached the disk, and a call that throws has changed nothing; only when it fails to sync the
/// folder, the file may be ahead until the next change. One process at a time may change a file.
class ScheduleStore {
 public:
  /// A file that could not be understood, and the name under which it is kept.
  struct BrokenFile {
    std::filesystem::path keptAs;
    std::string problem;

    bool operator==(const BrokenFile&) const = default;
  };

  /// Reads the tasks from the file at `fileURL`, if one is given and there is one; its folder must exist when
  /// the first change is written. A relative path is meant from the current folder of now, and a link is
  /// followed. A file that is broken is renamed, never overwritten, and the store begins empty; brokenFile()
  /// tells of it. Throws std::system_error when there is a file that cannot be read or renamed.
  ///
  /// New runs are computed with `calendar`.
  explicit ScheduleStore(std::optional<std::filesystem::path> fileURL = std::nullopt,
                         Calendar calendar = Calendar::current());

  [[nodiscard]] const std::optional<BrokenFile>& brokenFile() const noexcept { return brokenFile_; }

  /// All tasks, in the order in which they were added.
  [[nodiscard]] std::vector<ScheduledTask> tasks() const MOLVANE_EXCLUDES(lock_);

  // The following throw, when the file cannot be written, std::system_error, or what encodedScheduleFile
  // throws.

  /// Adds the task, or puts it in the place of the one with its identifier. Its nextRun is kept as given; for
  /// a new task that is schedule.nextRun(now, calendar) as a rule.
  void upsert(ScheduledTask task) MOLVANE_EXCLUDES(changing_, lock_);

  /// Removes the task; false when there is none of that identifier.
  bool remove(const Uuid& id) MOLVANE_EXCLUDES(changing_, lock_);

  /// The tasks to run at `now`, in order: those that are enabled, whose next run has come, and which are at
  /// most `missedGrace` seconds late or are to run however late.
  [[nodiscard]] std::vector<ScheduledTask> due(Date now, double missedGrace) const MOLVANE_EXCLUDES(lock_);

  /// Records that the task began to run at `at`, with what came of it if that is known, and moves its next
  /// run on; false when there is none of that identifier. Throws std::out_of_range where
  /// Schedule::nextRun does, as skipMissed does too.
  ///
  /// The next run afterwards is later than `at`. A run up to a minute ahead of the next run counts as that
  /// run, so that a clock set back between due and markRun does not make it run again; a run further ahead
  /// was one beside the schedule, and the next run does not come earlier for it. A task that had none gets
  /// one.
  bool markRun(const Uuid& id, Date at, std::optional<RunOutcome> outcome) MOLVANE_EXCLUDES(changing_, lock_);

  /// Passes over the runs that due leaves out at `now` for being late: moves the next run of those tasks to
  /// the first after `now`. Returns these tasks as they were, with the run that they missed.
  std::vector<ScheduledTask> skipMissed(Date now, double missedGrace) MOLVANE_EXCLUDES(changing_, lock_);

 private:
  using Tasks = std::vector<std::shared_ptr<const ScheduledTask>>;

  void load();
  [[nodiscard]] std::shared_ptr<const Tasks> snapshot() const MOLVANE_EXCLUDES(lock_);
  void commit(Tasks tasks) MOLVANE_REQUIRES(changing_) MOLVANE_EXCLUDES(lock_);
  void persist(const Tasks& tasks) MOLVANE_REQUIRES(changing_);

  /// Held over a whole change and the writing of it, so that the file sees changes in their order.
  mutable Mutex changing_;
  /// Held for as long as it takes to look at the list or to replace it.
  mutable Mutex lock_;
  std::shared_ptr<const Tasks> tasks_ MOLVANE_GUARDED_BY(lock_);
  std::optional<std::filesystem::path> fileURL_;
  /// Whether what killed writers left beside the file has been removed.
  bool tidied_ MOLVANE_GUARDED_BY(changing_) = false;
  Calendar calendar_;
  std::optional<BrokenFile> brokenFile_;
};

}  // namespace molvane
