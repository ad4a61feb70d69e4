#pragma once

#include <cstddef>
#include <string>

#include "HelperProtocol/DeviceJobSpec.hpp"
#include "HelperProtocol/DeviceJobStatus.hpp"
#include "molvanectl/Command.hpp"
#include "molvanectl/DeviceProgress.hpp"
#include "molvanectl/Session.hpp"

namespace molvane::ctl {

/// Starts the job and returns its identifier; nothing when the helper refused, which has been reported then.
std::optional<std::string> startJob(const DeviceJobSpec& spec, Session& session);

/// What the helper says about a job. Throws JobRefusal when it says no, ConnectionError.
DeviceJobStatus statusOf(const std::string& jobID, Session& session);

/// The helper refused to tell about a job: in all likelihood it does not know it.
class JobRefusal : public std::runtime_error {
 public:
  explicit JobRefusal(NSError error)
      : std::runtime_error(error.localizedDescription), error_(std::move(error)) {}

  [[nodiscard]] const NSError& error() const noexcept { return error_; }

 private:
  NSError error_;
};

/// Follows a job to its end and shows it: what it logs as it comes, and how far it is.
class DeviceJobFollower {
 public:
  /// What the first Ctrl-C means. The second always leaves the job to itself.
  enum class Interrupt { cancels, leaves };

  DeviceJobFollower(Session& session, std::string jobID, Interrupt interrupt)
      : session_(session), jobID_(std::move(jobID)), interrupt_(interrupt) {}

  /// `done` for a job that finished. A connection that is lost is made again once for each time that it is
  /// lost; where that does not help, what is known has been said and the status is noConnection.
  ExitStatus follow();

 private:
  enum class Heard { status, nothing };

  Heard hear(DeviceJobStatus& status);
  bool reconnect();
  void show(const DeviceJobStatus& status);
  void showLog(const DeviceJobStatus& status);
  void showProgress(const DeviceJobStatus& status);
  ExitStatus end(const DeviceJobStatus& status);
  /// True when the person wants to leave.
  bool heed();
  ExitStatus leave();
  ExitStatus say(ExitStatus status, const std::string& sentence);

  Session& session_;
  const std::string jobID_;
  const Interrupt interrupt_;
  DeviceProgress progress_;
  std::size_t logShown_ = 0;
  bool isLineOpen_ = false;
  std::optional<DeviceJobStatus> shown_;
  int interruptsHeeded_ = 0;
  bool hasAskedToCancel_ = false;
};

}  // namespace molvane::ctl
