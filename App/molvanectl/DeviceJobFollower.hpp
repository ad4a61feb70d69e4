#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "HelperProtocol/DeviceJobStatus.hpp"
#include "molvanectl/Command.hpp"
#include "molvanectl/DeviceJobView.hpp"
#include "molvanectl/DeviceJobWords.hpp"
#include "molvanectl/Session.hpp"

namespace molvane::ctl {

/// How often a job that is followed is looked at.
inline constexpr std::chrono::milliseconds kJobLookInterval{250};

/// What the helper answers about a job. Throws ConnectionError, and std::runtime_error for a document that is
/// no status; an error of the helper's is in the answer.
struct DeviceJobAnswer {
  std::optional<DeviceJobStatus> status;
  NSError error;  ///< where there is no status
};
[[nodiscard]] DeviceJobAnswer askForDeviceJob(Session& session, const std::string& jobID);

/// Reports an error about a job.
void reportJobError(Output& output, const std::string& jobID, const std::string& description);

/// Follows a job to its end over the session's one connection, which keeps the helper from ending.
///
/// The first interruption asks the helper to cancel the job and goes on waiting for its end; the second one
/// stops the following.
class DeviceJobFollower {
 public:
  /// Without `words` they are guessed from the job's log. All but the words must outlive this object.
  DeviceJobFollower(Session& session, Waiter& waiter, std::string jobID, std::optional<DeviceJobWords> words);

  /// Says everything that is to be said, and how the program ends: done for a job that finished with all that
  /// it was to do, whether it was to be cancelled or not. Throws OutputError.
  ExitStatus follow();

 private:
  ExitStatus followToEnd();
  ExitStatus left();
  ExitStatus report(const DeviceJobStatus& status);
  void fail(const std::string& description, const std::string& note);
  bool askToCancel();
  void guessWords(const DeviceJobStatus& status);
  /// A sentence about the remains of a job that did not finish; `differs` of one whose verification failed.
  [[nodiscard]] std::string leftBehind(bool differs = false) const;

  Session& session_;
  Waiter& waiter_;
  std::string jobID_;
  bool guessing_;
  DeviceJobWords words_;
  std::unique_ptr<DeviceJobView> view_;
  bool verifies_ = false;  ///< everything has been written
  int interruptions_ = 0;
};

}  // namespace molvane::ctl
