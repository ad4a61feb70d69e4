#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Base/Mutex.hpp"
#include "HelperKit/Devices/DeviceJobTable.hpp"
#include "HelperKit/Devices/DeviceJobWork.hpp"
#include "HelperKit/Devices/DevicePolicy.hpp"
#include "HelperProtocol/DeviceJobSpec.hpp"
#include "HelperProtocol/DeviceJobStatus.hpp"
#include "Platform/Thread.hpp"

namespace molvane {

/// Owns every device job of the process. Each runs on a thread of its own; there is no limit on their number,
/// and two jobs on one disk run side by side. A job that copies holds one ChunkBuffer and two more threads
/// while it runs. The status of a job that has ended can be asked for until the process ends.
///
/// Jobs do not keep the process alive, but a disk that never answers its request keeps the job's thread for
/// ever. So stop() comes before the end, and where it leaves jobs the process goes on. The destructor asks
/// the jobs that still run to stop and waits for them without a bound.
///
/// Any thread; starting a job costs no more than its validation.
class DeviceJobRunner {
 public:
  /// `makePolicy` is asked at every start, and before that nothing happens.
  explicit DeviceJobRunner(DevicePolicyFactory makePolicy, RawDeviceOpener openDevice = openRawDevice);
  ~DeviceJobRunner();
  DeviceJobRunner(const DeviceJobRunner&) = delete;
  DeviceJobRunner& operator=(const DeviceJobRunner&) = delete;

  /// Validates the job, for the user `peerUID`, and starts it; returns its identifier. Throws
  /// DevicePolicyError, or std::system_error when there is no policy (see makeDevicePolicy), no thread to be
  /// had, or the jobs are being stopped (ECANCELED). Then there is no job.
  std::string start(const DeviceJobSpec& spec, std::uint32_t peerUID);

  /// Nothing for an identifier that no job has.
  [[nodiscard]] std::optional<DeviceJobStatus> status(const std::string& id) const;

  /// Asks a job to stop; false when there is no such job or it has ended. The job decides when it looks, and
  /// one that ends before that ends as it would have; the backup destination is set in any case.
  bool cancel(const std::string& id);

  /// Asks all jobs to stop, as cancel() does, and waits up to `patience`; no job starts meanwhile. When by
  /// then only tools still run, their jobs end and the tools go on by themselves, for which it waits up to
  /// kPatienceWithTools more. What an imaging job created is gone then, and a disk that was being written is
  /// left partially written.
  ///
  /// Returns the identifiers of the jobs that have not ended. None: the destructor has nothing to wait for,
  /// and no job can be started any more. Otherwise jobs can be started again; those that were asked to stop
  /// end as cancelled ones as soon as they notice. One call at a time.
  [[nodiscard]] std::vector<std::string> stop(std::chrono::milliseconds patience);
  static constexpr std::chrono::seconds kPatienceWithTools{2};

 private:
  using Work = std::function<void(DeviceJob&)>;
  struct Planned {
    std::int64_t bytesTotal = 0;
    Work work;
    bool runsTool = false;
  };
  // `isOver` under the mutex; the rest is set before the thread begins.
  struct Running {
    std::string id;
    bool runsTool = false;
    bool isOver = false;
    Thread thread;
  };

  [[nodiscard]] Planned plan(const DevicePolicy& policy, const ImageDevice& job, std::uint32_t peerUID) const;
  [[nodiscard]] Planned plan(const DevicePolicy& policy, const WriteImage& job, std::uint32_t peerUID) const;
  [[nodiscard]] Planned plan(const DevicePolicy& policy, const CreateInstallMedia& job,
                             std::uint32_t peerUID) const;
  [[nodiscard]] Planned plan(const DevicePolicy& policy, const SetTimeMachineDestination& job,
                             std::uint32_t peerUID) const;
  void launch(const std::string& id, const Planned& planned) MOLVANE_EXCLUDES(mutex_);
  void waitForEnds(std::chrono::milliseconds patience) MOLVANE_EXCLUDES(mutex_);
  [[nodiscard]] bool allAreOver() const MOLVANE_REQUIRES(mutex_);
  [[nodiscard]] bool onlyToolsRun() MOLVANE_EXCLUDES(mutex_);
  std::vector<std::string> goOn() MOLVANE_EXCLUDES(mutex_);

  const DevicePolicyFactory makePolicy_;
  const RawDeviceOpener openDevice_;
  DeviceJobTable table_;

  Mutex mutex_;
  Condition ended_;  // a job's work
  std::list<Running> running_ MOLVANE_GUARDED_BY(mutex_);
  bool isStopping_ MOLVANE_GUARDED_BY(mutex_) = false;
};

}  // namespace molvane
