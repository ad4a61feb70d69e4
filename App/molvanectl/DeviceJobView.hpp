#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "HelperProtocol/DeviceJobStatus.hpp"
#include "molvanectl/DeviceJobWords.hpp"
#include "molvanectl/Session.hpp"

namespace molvane::ctl {

/// Shows a job while it is followed: as a line that is drawn over and over on a terminal, else as lines, or
/// as JSON events. Its methods throw OutputError. The destructor leaves the terminal's line empty.
class DeviceJobView {
 public:
  using Time = std::chrono::steady_clock::time_point;

  virtual ~DeviceJobView() = default;

  /// Another look at the job; the last one is at its end.
  virtual void show(const DeviceJobStatus& status, const DeviceJobWords& words, Time now) = 0;

  /// The helper was asked to cancel the job, and said whether it will try.
  virtual void cancelling(bool accepted) = 0;

  /// Nothing more is shown: what is said next stands on lines of its own.
  virtual void close() = 0;
};

/// The view that suits the output; the session must outlive it.
[[nodiscard]] std::unique_ptr<DeviceJobView> makeDeviceJobView(Session& session, const std::string& jobID);

/// A job's status as members of a JSON object, all but its log.
[[nodiscard]] Record asRecord(const std::string& jobID, const DeviceJobStatus& status);

/// The word for a phase.
[[nodiscard]] std::string phaseWord(const DeviceJobStatus& status, const DeviceJobWords& words);

}  // namespace molvane::ctl
