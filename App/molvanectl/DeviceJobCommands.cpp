#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "molvanectl/DeviceCommands.hpp"
#include "molvanectl/DeviceJobFollower.hpp"
#include "molvanectl/DeviceProgress.hpp"
#include "molvanectl/OptionSet.hpp"

namespace molvane::ctl {
namespace {

/// A command about a job that runs already.
class JobCommand : public Command {
 public:
  void declare(OptionSet& options) override {
    options.argument("JOB", jobID_, "Identifier of the job, as the command that started it printed it.");
  }

 protected:
  [[nodiscard]] const std::string& jobID() const { return jobID_; }

 private:
  std::string jobID_;
};

class StatusCommand final : public JobCommand {
 public:
  CommandText text() const override {
    return {
        "status", "Tell once how a job stands",
        "Prints the phase of a job and how far it has come, then the number of unreadable blocks, the "
        "SHA-256 "
        "and the error, if any. Ends with 0 whatever the phase is. The helper only knows jobs started since "
        "it was last started. With --json: an object with the keys job, phase, bytesDone, bytesTotal, "
        "badBlocks "
        "and log, and sha256 and error where there are any.",
        "molvanectl device status 6F1E5D2A-8C47-4B1B-9A5E-0D3C2B7A9F10"};
  }

  void declare(OptionSet& options) override {
    options.flag("--log", withLog_, "Print the job's log, too.");
    JobCommand::declare(options);
  }

  ExitStatus run(Session& session) override {
    const DeviceJobAnswer answer = askForDeviceJob(session, jobID());
    Output& output = session.output();
    if (!answer.status) {
      output.error(answer.error, {"job", jobID(), true});
      return ExitStatus::failed;
    }
    const DeviceJobStatus& status = *answer.status;
    if (output.json()) {
      Record record = asRecord(jobID(), status);
      record["log"] = status.log;
      output.record(record);
    } else {
      print(status, output);
    }
    return ExitStatus::done;
  }

 private:
  void print(const DeviceJobStatus& status, Output& output) const {
    std::string line(rawValue(status.phase));
    if (status.bytesTotal > 0) {
      DeviceProgress progress;
      progress.update(status, {});
      line += ": " + byteText(status.bytesDone) + " of " + byteText(status.bytesTotal) + ", " +
              std::to_string(*progress.percent()) + "%";
    }
    output.text(line);
    if (status.badBlocks > 0) output.text("unreadable blocks: " + std::to_string(status.badBlocks));
    if (status.sha256) output.text("SHA-256 " + *status.sha256);
    if (status.error) output.text("error: " + *status.error);
    if (withLog_) output.text(status.log);
  }

  bool withLog_ = false;
};

class WatchCommand final : public JobCommand {
 public:
  CommandText text() const override {
    return {"watch", "Follow a job to its end",
            "Follows a job that was started before, as the command that started it would: with its progress, "
            "its outcome and the exit status. The first Ctrl-C here cancels the job, too. While it is "
            "followed the helper does not end by itself. With --json: the same events.",
            "molvanectl device watch 6F1E5D2A-8C47-4B1B-9A5E-0D3C2B7A9F10"};
  }

  ExitStatus run(Session& session) override {
    const std::unique_ptr<Waiter> waiter = session.console().makeWaiter();
    return DeviceJobFollower(session, *waiter, jobID(), std::nullopt).follow();
  }
};

class CancelCommand final : public JobCommand {
 public:
  CommandText text() const override {
    return {
        "cancel", "Ask for a job to be cancelled",
        "Asks the helper to cancel a job and does not wait for its end. The job stops before its next piece "
        "of work; one that runs a system tool to set the backup destination does not, and ends normally. "
        "With --json: an object with the keys job and accepted.",
        "molvanectl device cancel 6F1E5D2A-8C47-4B1B-9A5E-0D3C2B7A9F10"};
  }

  ExitStatus run(Session& session) override {
    const auto [accepted] = session.ask(&MolvaneHelperXPCProtocol::cancelDeviceJob, jobID());
    Output& output = session.output();
    if (!accepted) {
      reportJobError(output, jobID(), "The job " + jobID() + " has ended, or the helper does not know it.");
      return ExitStatus::failed;
    }
    if (output.json()) {
      output.record({{"job", jobID()}, {"accepted", true}});
    } else {
      output.text("The helper was asked to cancel the job.");
    }
    return ExitStatus::done;
  }
};

}  // namespace

std::unique_ptr<Command> deviceStatusCommand() { return std::make_unique<StatusCommand>(); }
std::unique_ptr<Command> deviceWatchCommand() { return std::make_unique<WatchCommand>(); }
std::unique_ptr<Command> deviceCancelCommand() { return std::make_unique<CancelCommand>(); }

}  // namespace molvane::ctl
