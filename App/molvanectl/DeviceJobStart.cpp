#include "molvanectl/DeviceJobStart.hpp"

#include <memory>
#include <nlohmann/json.hpp>

#include "Base/JsonCoding.hpp"
#include "molvanectl/DeviceJobFollower.hpp"
#include "molvanectl/OptionSet.hpp"

namespace molvane::ctl {

std::string diskName(const std::string& disk) {
  constexpr std::string_view kFolder = "/dev/";
  if (!disk.starts_with(kFolder)) return disk;
  std::string name = disk.substr(kFolder.size());
  if (name.starts_with("rdisk")) name.erase(0, 1);
  return name;
}

DeviceJobStart startDeviceJob(Session& session, const DeviceJobSpec& spec) {
  const std::string document = encodedJson(spec);
  const auto [jobID, error] =
      session.ask(&MolvaneHelperXPCProtocol::startDeviceJob, Data(document.begin(), document.end()));
  if (error || !jobID || jobID->empty()) return {{}, refusal(error)};
  return {*jobID, {}};
}

void JobStartCommand::declare(OptionSet& options) {
  options.flag("--detach", detach_, "Print the job's identifier and do not follow it.");
}

ExitStatus JobStartCommand::run(Session& session) {
  const DeviceJobSpec document = spec();
  if (!mayStart(session)) return ExitStatus::failed;
  // From here on, so that an interruption which comes while the job is being started cancels it.
  const std::unique_ptr<Waiter> waiter = session.console().makeWaiter();
  const DeviceJobStart started = startDeviceJob(session, document);
  if (started.jobID.empty()) {
    session.output().error(started.error);
    return ExitStatus::failed;
  }
  announce(started.jobID, session.output());
  if (detach_) return ExitStatus::done;
  return DeviceJobFollower(session, *waiter, started.jobID, words()).follow();
}

void JobStartCommand::announce(const std::string& jobID, Output& output) const {
  if (output.json()) {
    output.record({{"event", "started"}, {"job", jobID}});
  } else if (detach_) {
    output.text(jobID);
  } else {
    output.notice("job " + jobID);
  }
  if (detach_) output.notice(kJobLifetime);
}

}  // namespace molvane::ctl
