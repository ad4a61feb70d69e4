#include "molvanectl/DeviceJobFollower.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "Base/JsonCoding.hpp"

namespace molvane::ctl {
namespace {

using Phase = DeviceJobStatus::Phase;
using std::chrono::milliseconds;

// A short job is seen to its end at once, a long one is asked for four times a second.
constexpr milliseconds kFirstPause{20};
constexpr milliseconds kPause{250};

}  // namespace

std::optional<std::string> startJob(const DeviceJobSpec& spec, Session& session) {
  const std::string document = encodedJson(spec);
  const auto [jobID, error] =
      session.ask(&MolvaneHelperXPCProtocol::startDeviceJob, Data(document.begin(), document.end()));
  if (!error && jobID && !jobID->empty()) return jobID;
  session.output().error(refusal(error));
  return std::nullopt;
}

DeviceJobStatus statusOf(const std::string& jobID, Session& session) {
  const auto [document, error] = session.ask(&MolvaneHelperXPCProtocol::deviceJobStatus, jobID);
  if (error || !document) throw JobRefusal(refusal(error));
  return decodedJson<DeviceJobStatus>(std::string(document->begin(), document->end()));
}

ExitStatus DeviceJobFollower::follow() {
  session_.person().catchInterrupts();
  milliseconds pause = kFirstPause;
  DeviceJobStatus status;
  for (;;) {
    if (hear(status) == Heard::nothing) return ExitStatus::noConnection;
    show(status);
    if (status.isTerminal()) return end(status);
    if (heed()) return leave();
    session_.person().wait(pause);
    pause = std::min(pause * 2, kPause);
  }
}

DeviceJobFollower::Heard DeviceJobFollower::hear(DeviceJobStatus& status) {
  bool isNewConnection = false;
  for (;;) try {
      status = statusOf(jobID_, session_);
      return Heard::status;
    } catch (const JobRefusal& refused) {
      if (!isNewConnection) throw;
      say(ExitStatus::noConnection,
          "The helper ended and was started again; it knows nothing of the job, which ended with it. What "
          "the job was "
          "writing is unfinished. (" +
              std::string(refused.what()) + ")");
      return Heard::nothing;
    } catch (const ConnectionError& lost) {
      if (!isNewConnection && reconnect()) {
        isNewConnection = true;
        continue;
      }
      say(ExitStatus::noConnection,
          "The connection to the helper was lost, and it cannot be reached again. Whether the job still runs "
          "is not "
          "known. 'molvanectl device watch " +
              jobID_ + "' asks. (" + lost.what() + ")");
      return Heard::nothing;
    }
}

bool DeviceJobFollower::reconnect() try {
  session_.output().remark("The connection to the helper was lost. Connecting again.");
  session_.reconnect();
  return true;
} catch (const ConnectionError&) {
  return false;
}

void DeviceJobFollower::show(const DeviceJobStatus& status) {
  showLog(status);
  showProgress(status);
  shown_ = status;
}

void DeviceJobFollower::showLog(const DeviceJobStatus& status) {
  std::size_t end = status.log.size();
  // The sentence that the job failed with also ends its log; it is said as an error.
  if (status.error && status.log.ends_with(*status.error + "\n")) end -= status.error->size() + 1;
  if (end <= logShown_) return;
  const std::string text = status.log.substr(logShown_, end - logShown_);
  logShown_ = end;
  Output& output = session_.output();
  if (output.json()) {
    output.record({{"event", "log"}, {"job", jobID_}, {"text", text}});
    return;
  }
  output.piece(text);
  isLineOpen_ = text.back() != '\n';
}

void DeviceJobFollower::showProgress(const DeviceJobStatus& status) {
  Output& output = session_.output();
  progress_.add(status, session_.person().now());
  if (output.json()) {
    if (shown_ && shown_->phase == status.phase && shown_->bytesDone == status.bytesDone &&
        shown_->badBlocks == status.badBlocks) {
      return;
    }
    output.record({{"event", "progress"},
                   {"job", jobID_},
                   {"phase", rawValue(status.phase)},
                   {"bytesDone", status.bytesDone},
                   {"bytesTotal", status.bytesTotal},
                   {"badBlocks", status.badBlocks}});
    return;
  }
  // Where the amount is not known, what the tool says is the progress.
  if (status.isTerminal() || !progress_.isMeasured()) return;
  if (output.errIsTerminal()) {
    output.bar(progress_.bar());
  } else if (const std::optional<std::string> line = progress_.nextLine()) {
    output.text(*line);
  }
}

ExitStatus DeviceJobFollower::end(const DeviceJobStatus& status) {
  Output& output = session_.output();
  if (output.json()) {
    Record record{{"event", "ended"}, {"job", jobID_}, {"phase", rawValue(status.phase)}};
    if (status.sha256) record["sha256"] = *status.sha256;
    if (status.error) record["error"] = *status.error;
    record["badBlocks"] = status.badBlocks;
    output.record(record);
  }
  if (isLineOpen_) output.piece("\n");
  switch (status.phase) {
    case Phase::finished:
      return ExitStatus::done;
    case Phase::cancelled:
      return say(ExitStatus::failed, "The job was cancelled.");
    default:
      return say(ExitStatus::failed, status.error.value_or("The job failed and gave no reason."));
  }
}

bool DeviceJobFollower::heed() {
  const int count = session_.person().interrupts();
  if (count == interruptsHeeded_) return false;
  if (interrupt_ == Interrupt::leaves || hasAskedToCancel_) return true;
  Output& output = session_.output();
  if (output.json()) output.record({{"event", "cancelling"}, {"job", jobID_}});
  output.remark("Cancelling, and waiting for the job to end. Ctrl-C again leaves it to itself.");
  try {
    static_cast<void>(session_.ask(&MolvaneHelperXPCProtocol::cancelDeviceJob, jobID_));
  } catch (const ConnectionError&) {
    return false;  // asked again when the next status has come, if one comes
  }
  hasAskedToCancel_ = true;
  interruptsHeeded_ = count;
  return count > 1;
}

ExitStatus DeviceJobFollower::leave() {
  const std::string again = "'molvanectl device watch " + jobID_ + "' follows it again.";
  if (hasAskedToCancel_) {
    return say(ExitStatus::failed, "Left before the job had ended. It has been asked to stop; " + again);
  }
  return say(
      ExitStatus::failed,
      "Left before the job had ended. It goes on, for two minutes at least if nobody else is connected; " +
          again);
}

ExitStatus DeviceJobFollower::say(ExitStatus status, const std::string& sentence) {
  session_.output().error({std::string(kProgramErrorDomain), static_cast<int>(status), sentence});
  return status;
}

}  // namespace molvane::ctl
