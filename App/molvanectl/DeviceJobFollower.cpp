#include "molvanectl/DeviceJobFollower.hpp"

#include <stdexcept>
#include <string_view>
#include <utility>

#include "Base/JsonCoding.hpp"
#include "molvanectl/DeviceProgress.hpp"

namespace molvane::ctl {
namespace {

using Phase = DeviceJobStatus::Phase;

std::string unreadableBlocksText(std::int64_t count) {
  return count == 1 ? "1 block could not be read; zeros stand in its place."
                    : std::to_string(count) + " blocks could not be read; zeros stand in their place.";
}

// The texts of statuses are the helper's.

bool differs(const DeviceJobStatus& status) {
  return status.error && status.error->starts_with("Verification failed: ");
}

/// Whether the helper gave up before it had touched anything.
bool neverBegan(const DeviceJobStatus& status) {
  return status.error &&
         (status.error->starts_with("Cannot open ") || status.error->starts_with("Cannot create "));
}

}  // namespace

DeviceJobAnswer askForDeviceJob(Session& session, const std::string& jobID) {
  const auto [document, error] = session.ask(&MolvaneHelperXPCProtocol::deviceJobStatus, jobID);
  if (error || !document) return {std::nullopt, refusal(error)};
  try {
    return {decodedJson<DeviceJobStatus>({reinterpret_cast<const char*>(document->data()), document->size()}),
            {}};
  } catch (const DecodingError& broken) {
    throw std::runtime_error("What the helper answered about the job " + jobID + " cannot be read: " +
                             broken.what() + " What has become of the job is not known.");
  }
}

void reportJobError(Output& output, const std::string& jobID, const std::string& description) {
  output.error({std::string(kProgramErrorDomain), static_cast<int>(ExitStatus::failed), description},
               {"job", jobID, true});
}

DeviceJobFollower::DeviceJobFollower(Session& session, Waiter& waiter, std::string jobID,
                                     std::optional<DeviceJobWords> words)
    : session_(session),
      waiter_(waiter),
      jobID_(std::move(jobID)),
      guessing_(!words),
      words_(std::move(words).value_or(DeviceJobWords{})),
      view_(makeDeviceJobView(session, jobID_)) {}

ExitStatus DeviceJobFollower::follow() {
  Output& output = session_.output();
  try {
    return followToEnd();
  } catch (const ConnectionError&) {
    if (!session_.answered()) throw;
    view_->close();
    std::string description = "The connection to the helper was lost. What has become of the job " + jobID_ +
                              " is not known; it may have been broken off.";
    if (const std::string left = leftBehind(); !left.empty()) description += " " + left;
    output.error({std::string(kProgramErrorDomain), static_cast<int>(ExitStatus::noConnection), description},
                 {"job", jobID_, true});
    return ExitStatus::noConnection;
  } catch (const OutputError&) {
    output.notice("The job " + jobID_ + " is no longer followed. " + std::string(kJobLifetime));
    throw;
  }
}

ExitStatus DeviceJobFollower::followToEnd() {
  while (true) {
    const DeviceJobAnswer answer = askForDeviceJob(session_, jobID_);
    if (!answer.status) {
      view_->close();
      session_.output().error(answer.error, {"job", jobID_, true});
      return ExitStatus::failed;
    }
    if (guessing_) guessWords(*answer.status);
    verifies_ = answer.status->log.find("\nVerifying…\n") != std::string::npos;
    view_->show(*answer.status, words_, waiter_.now());
    if (answer.status->isTerminal()) return report(*answer.status);
    if (!waiter_.wait(kJobLookInterval)) continue;
    if (++interruptions_ > 1) return left();
    view_->cancelling(askToCancel());
  }
}

std::string DeviceJobFollower::leftBehind(bool differs) const {
  if (!verifies_ || words_.allWritten.empty()) return words_.leftBehind;
  return words_.allWritten + (differs ? ", but the disk gives back something else. Do not use it."
                                      : ", but that the disk holds the same has not been proved.");
}

bool DeviceJobFollower::askToCancel() {
  const auto [accepted] = session_.ask(&MolvaneHelperXPCProtocol::cancelDeviceJob, jobID_);
  return accepted;
}

ExitStatus DeviceJobFollower::left() {
  view_->close();
  reportJobError(session_.output(), jobID_,
                 "Left the job " + jobID_ +
                     " before its end. It was asked to stop, but may still run; 'molvanectl " +
                     "device watch " + jobID_ + "' follows it. " + std::string(kJobLifetime));
  return ExitStatus::failed;
}

ExitStatus DeviceJobFollower::report(const DeviceJobStatus& status) {
  view_->close();
  Output& output = session_.output();
  switch (status.phase) {
    case Phase::finished:
      if (status.bytesDone >= status.bytesTotal) break;
      // An image that was cut short while it was written, or a disk that is smaller than it says.
      fail("Only " + byteText(status.bytesDone) + " of " + byteText(status.bytesTotal) +
               " could be copied; there was no more to read.",
           leftBehind());
      return ExitStatus::failed;
    case Phase::cancelled:
      fail("The job was cancelled.", words_.cleansUp ? std::string() : leftBehind());
      return ExitStatus::failed;
    default:
      fail(status.error.value_or("The job failed and gave no reason."),
           neverBegan(status) ? std::string() : leftBehind(differs(status)));
      return ExitStatus::failed;
  }
  if (interruptions_ > 0) output.notice("The job was to be cancelled, but it came to its normal end.");
  if (output.json()) return ExitStatus::done;
  output.text(words_.done);
  if (status.badBlocks > 0) output.text(unreadableBlocksText(status.badBlocks));
  if (status.sha256) output.text("SHA-256 " + *status.sha256);
  return ExitStatus::done;
}

void DeviceJobFollower::fail(const std::string& description, const std::string& note) {
  reportJobError(session_.output(), jobID_, description);
  if (!note.empty()) session_.output().notice(note);
}

void DeviceJobFollower::guessWords(const DeviceJobStatus& status) {
  if (status.log.starts_with("Writing ")) {
    words_ = {.running = "writing",
              .done = "The image has been written.",
              .leftBehind = "The disk may hold only a part of the image.",
              .allWritten = "The whole image was written",
              .showsLog = false};
  } else if (status.log.starts_with("Reading ")) {
    words_ = {.running = "reading", .done = "The disk has been read.", .showsLog = false};
  }
}

}  // namespace molvane::ctl
