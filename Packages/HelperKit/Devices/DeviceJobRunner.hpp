#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

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
/// Jobs do not keep the process alive. The destructor asks all of them to stop and waits: for requests that
/// are with a device, and a few seconds for the tool that makes install media. What an imaging job created is
/// gone then, a disk that was being written is left partially written, and a tool that has not ended goes on
/// by itself.
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
  /// DevicePolicyError, or std::system_error when there is no policy (see makeDevicePolicy) or no thread to
  /// be had. Then there is no job.
  std::string start(const DeviceJobSpec& spec, std::uint32_t peerUID);

  /// Nothing for an identifier that no job has.
  [[nodiscard]] std::optional<DeviceJobStatus> status(const std::string& id) const;

  /// Asks a job to stop; false when there is no such job or it has ended. The job decides when it looks, and
  /// one that ends before that ends as it would have; the backup destination is set in any case.
  bool cancel(const std::string& id);

 private:
  using Work = std::function<void(DeviceJob&)>;
  struct Planned {
    std::int64_t bytesTotal = 0;
    Work work;
  };
  struct Running {
    Thread thread;
    std::shared_ptr<std::atomic<bool>> isOver;
  };

  [[nodiscard]] Planned plan(const DevicePolicy& policy, const ImageDevice& job, std::uint32_t peerUID) const;
  [[nodiscard]] Planned plan(const DevicePolicy& policy, const WriteImage& job, std::uint32_t peerUID) const;
  [[nodiscard]] Planned plan(const DevicePolicy& policy, const CreateInstallMedia& job,
                             std::uint32_t peerUID) const;
  [[nodiscard]] Planned plan(const DevicePolicy& policy, const SetTimeMachineDestination& job,
                             std::uint32_t peerUID) const;
  void launch(const std::string& id, const Work& work) MOLVANE_EXCLUDES(mutex_);

  const DevicePolicyFactory makePolicy_;
  const RawDeviceOpener openDevice_;
  DeviceJobTable table_;

  Mutex mutex_;
  std::list<Running> running_ MOLVANE_GUARDED_BY(mutex_);
};

}  // namespace molvane
