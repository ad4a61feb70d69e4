#include "molvanectl/DeviceJobCommands.hpp"

#include <nlohmann/json.hpp>
#include <string>

#include "molvanectl/DeviceJobFollower.hpp"
#include "molvanectl/OptionSet.hpp"

namespace molvane::ctl {
namespace {

class JobCommand : public Command {
 public:
  void declare(OptionSet& options) override {
    options.argument("JOB", jobID_, "Identifier of the job, as it was printed when the job was started.");
  }

  ExitStatus run(Session& session) final try {
    return runFor(jobID_, session);
  } catch (const JobRefusal& refused) {
    session.output().error(refused.error());
    return ExitStatus::failed;
  }

 protected:
  virtual ExitStatus runFor(const std::string& jobID, Session& session) = 0;

 private:
  std::string jobID_;
};

class StatusCommand : public JobCommand {
 public:
  CommandText text() const override {
    return {"status", "Show what a device job has come to",
            "Prints the job's phase (queued, running, verifying, finished, failed or cancelled), how far it "
            "is, and its "
            "log. Jobs are known until the helper exits. With --json: one object with the keys job, phase, "
            "bytesDone, "
            "bytesTotal, badBlocks and log, and sha256 and error where there are such.",
            "molvanectl device status 3F2504E0-4F89-41D3-9A0C-0305E82C3301"};
  }

 protected:
  ExitStatus runFor(const std::string& jobID, Session& session) override {
    const DeviceJobStatus status = statusOf(jobID, session);
    Output& output = session.output();
    if (output.json()) {
      Record record{{"job", jobID},
                    {"phase", rawValue(status.phase)},
                    {"bytesDone", status.bytesDone},
                    {"bytesTotal", status.bytesTotal},
                    {"badBlocks", status.badBlocks},
                    {"log", status.log}};
      if (status.sha256) record["sha256"] = *status.sha256;
      if (status.error) record["error"] = *status.error;
      output.record(record);
      return ExitStatus::done;
    }
    std::string line(rawValue(status.phase));
    if (status.bytesTotal > 0)
      line += ", " + byteText(status.bytesDone) + " of " + byteText(status.bytesTotal);
    if (status.badBlocks > 0) line += ", " + std::to_string(status.badBlocks) + " unreadable blocks";
    output.text(line);
    output.text(status.log);
    return ExitStatus::done;
  }
};

class CancelCommand : public JobCommand {
 public:
  CommandText text() const override {
    return {"cancel", "Ask a device job to stop",
            "Asks the job to stop and does not wait until it has; 'molvanectl device watch' does. A write "
            "that is stopped "
            "leaves the disk partly overwritten. Setting the backup destination does not stop. With --json: "
            "an object "
            "with the keys job and cancelling.",
            "molvanectl device cancel 3F2504E0-4F89-41D3-9A0C-0305E82C3301"};
  }

 protected:
  ExitStatus runFor(const std::string& jobID, Session& session) override {
    const auto [isCancelling] = session.ask(&MolvaneHelperXPCProtocol::cancelDeviceJob, jobID);
    if (!isCancelling) {
      session.output().error({std::string(kProgramErrorDomain), static_cast<int>(ExitStatus::failed),
                              "There is no such job, or it has ended: " + jobID});
      return ExitStatus::failed;
    }
    if (session.output().json()) session.output().record({{"job", jobID}, {"cancelling", true}});
    return ExitStatus::done;
  }
};

class WatchCommand : public JobCommand {
 public:
  CommandText text() const override {
    return {"watch", "Follow a device job to its end",
            "Shows a job that runs already as the command shows it that started it, and ends with the same "
            "exit status. "
            "Ctrl-C leaves the job to itself. With --json: one object an event, as from the commands that "
            "start jobs.",
            "molvanectl device watch 3F2504E0-4F89-41D3-9A0C-0305E82C3301"};
  }

 protected:
  ExitStatus runFor(const std::string& jobID, Session& session) override {
    return DeviceJobFollower(session, jobID, DeviceJobFollower::Interrupt::leaves).follow();
  }
};

}  // namespace

std::vector<std::unique_ptr<Command>> deviceJobCommands() {
  std::vector<std::unique_ptr<Command>> commands;
  commands.push_back(std::make_unique<StatusCommand>());
  commands.push_back(std::make_unique<CancelCommand>());
  commands.push_back(std::make_unique<WatchCommand>());
  return commands;
}

}  // namespace molvane::ctl
