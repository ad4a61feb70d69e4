#pragma once

#include <filesystem>
#include <functional>
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

struct KeptTask;

/// Keeps the list of scheduled tasks, in memory and in a file, and says which are due.
///
/// Any thread may use a store, and any number of stores, in this process and others, the same file: each call
/// sees what was written before it, by whichever store. A call that changes something waits while another
/// store changes the file, for up to 30 seconds.
///
/// Every change is written to the file before it can be seen: the call returns when it has reached the disk,
/// and a call that throws has changed nothing; only when it fails to sync the folder, the change may stand.
class ScheduleStore {
 public:
  /// A file that could not be understood, and the name under which it is kept.
  struct BrokenFile {
    std::filesystem::path keptAs;
    std::string problem;

    bool operator==(const BrokenFile&) const = default;
  };

  /// Reads the tasks from the file at `fileURL`, if one is given and there is one; no file is an empty list,
  /// also later on. Its folder must exist when a change is written. A relative path is meant from the current
  /// folder of now, and a link is followed. A file that is broken is renamed, never overwritten, and the
  /// store begins empty; brokenFile() tells of it. A file that a newer version wrote stays as it is: throws
  /// NewerScheduleFile. Throws std::system_error when there is a file that cannot be read or renamed.
  ///
  /// New runs are computed with `calendar`.
  explicit ScheduleStore(std::optional<std::filesystem::path> fileURL = std::nullopt,
                         Calendar calendar = Calendar::current());

  [[nodiscard]] const std::optional<BrokenFile>& brokenFile() const noexcept { return brokenFile_; }

  // All that follow read the file when it is not the one that was read last, and then throw what
  // readScheduleFile does. A file found broken is not renamed by them: the next store does that.

  /// All tasks, in the order in which they were added.
  [[nodiscard]] std::vector<ScheduledTask> tasks() const MOLVANE_EXCLUDES(lock_);

  // Those that change something throw std::system_error when the file cannot be locked (EBUSY after the wait)
  // or written, std::length_error when the tasks would be more than kMaximumScheduleFileSize or one of them
  // more than kMaximumJsonSize, and std::invalid_argument for a date that is not finite.

  /// Adds the task, or puts it in the place of the one with its identifier; members of that one in the file
  /// that this version does not know stay. Its nextRun is kept as given; for a new task that is
  /// schedule.nextRun(now, calendar) as a rule.
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
  using Tasks = std::vector<std::shared_ptr<const KeptTask>>;
  struct List;

  void setBrokenFileAside();
  [[nodiscard]] std::shared_ptr<const List> known() const MOLVANE_EXCLUDES(lock_);
  [[nodiscard]] std::shared_ptr<const List> current() const MOLVANE_EXCLUDES(lock_);
  std::shared_ptr<const List> publish(List list) const MOLVANE_EXCLUDES(lock_);
  bool change(const std::function<bool(Tasks&)>& apply) MOLVANE_EXCLUDES(changing_, lock_);
  [[nodiscard]] List persisted(Tasks tasks) MOLVANE_REQUIRES(changing_);

  /// Held over a whole change and the writing of it, so that the file sees changes in their order.
  mutable Mutex changing_;
  /// Held for as long as it takes to look at the list or to replace it.
  mutable Mutex lock_;
  mutable std::shared_ptr<const List> list_ MOLVANE_GUARDED_BY(lock_);
  std::optional<std::filesystem::path> fileURL_;
  /// Whether what killed writers left beside the file has been removed.
  bool tidied_ MOLVANE_GUARDED_BY(changing_) = false;
  Calendar calendar_;
  std::optional<BrokenFile> brokenFile_;
};

}  // namespace molvane
