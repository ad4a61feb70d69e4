#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "Base/Mutex.hpp"
#include "HelperProtocol/DeviceJobStatus.hpp"

namespace molvane {

/// What became of every device job of this process, and which of them are to stop. Any thread; the lock is
/// held for no more than a look at the tables.
class DeviceJobTable {
 public:
  /// Registers a job.
  void add(const std::string& id, DeviceJobStatus status) MOLVANE_EXCLUDES(mutex_);
  /// Takes back the registration of a job that never began.
  void remove(const std::string& id) MOLVANE_EXCLUDES(mutex_);

  /// A copy; nothing for an identifier that no job has.
  [[nodiscard]] std::optional<DeviceJobStatus> status(const std::string& id) const MOLVANE_EXCLUDES(mutex_);

  /// Asks a job to stop; false when there is no such job or it has ended.
  bool cancel(const std::string& id) MOLVANE_EXCLUDES(mutex_);
  [[nodiscard]] bool isCancelled(const std::string& id) const MOLVANE_EXCLUDES(mutex_);

  /// Asks every job that has not ended to stop.
  void cancelAll() MOLVANE_EXCLUDES(mutex_);

  /// Whether jobs that wait for a tool are to leave it to itself, because the process ends.
  void setLeavesTools(bool leavesTools) MOLVANE_EXCLUDES(mutex_);
  [[nodiscard]] bool leavesTools() const MOLVANE_EXCLUDES(mutex_);

  /// Changes a status. `change` runs under the lock: it touches the status and nothing else.
  void update(const std::string& id, const std::function<void(DeviceJobStatus&)>& change)
      MOLVANE_EXCLUDES(mutex_);

 private:
  mutable Mutex mutex_;
  std::map<std::string, DeviceJobStatus> statuses_ MOLVANE_GUARDED_BY(mutex_);
  std::set<std::string> cancelled_ MOLVANE_GUARDED_BY(mutex_);
  bool leavesTools_ MOLVANE_GUARDED_BY(mutex_) = false;
};

/// How a job ended.
struct JobEnd {
  DeviceJobStatus::Phase phase = DeviceJobStatus::Phase::finished;  ///< a terminal one
  std::string text = {};  ///< of a failure: its message; of anything else: what the log still gets
  std::optional<std::string> sha256 = std::nullopt;

  static JobEnd failed(std::string message) { return {DeviceJobStatus::Phase::failed, std::move(message)}; }
  static JobEnd cancelled(std::string logged = "") {
    return {DeviceJobStatus::Phase::cancelled, std::move(logged)};
  }
};

/// One job, as the work that it does sees it. Any thread.
class DeviceJob {
 public:
  /// `table` outlives the job.
  DeviceJob(DeviceJobTable& table, std::string id) : table_(table), id_(std::move(id)) {}

  /// As DeviceJobTable::update.
  void update(const std::function<void(DeviceJobStatus&)>& change) { table_.update(id_, change); }

  /// The job is to stop: somebody asked for it, or the process would like to end.
  [[nodiscard]] bool isToStop() const { return table_.isCancelled(id_); }
  /// The process ends now; a tool that still runs goes on by itself.
  [[nodiscard]] bool isToLeaveItsTool() const { return table_.leavesTools(); }

  /// Sets the phase and adds to the log.
  void enter(DeviceJobStatus::Phase phase, const std::string& logged = "");
  /// The job has ended. A failure's message becomes its error and a line of its log. Whoever sees it may use
  /// the disk and the files at once, so everything is closed before.
  void end(const JobEnd& end);
  void fail(const std::string& message) { end(JobEnd::failed(message)); }

 private:
  DeviceJobTable& table_;
  const std::string id_;
};

}  // namespace molvane
