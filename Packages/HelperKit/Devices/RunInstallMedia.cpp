#include <optional>
#include <string_view>

#include "Base/NSError.hpp"
#include "HelperKit/Devices/DeviceJobWork.hpp"
#include "HelperKit/Devices/ToolOutput.hpp"
#include "Platform/ChildProcess.hpp"

namespace molvane {
namespace {

using Clock = ChildProcess::Clock;
using Phase = DeviceJobStatus::Phase;

class LoggedOutput {
 public:
  LoggedOutput(DeviceJob& job, const ToolLimits& limits) : job_(job), output_(limits.kibibytesKept) {}

  void add(std::string_view piece) { log(output_.textOf(piece)); }
  void finish() { log(output_.rest()); }

 private:
  void log(const std::string& text) {
    if (!text.empty()) job_.update([&](DeviceJobStatus& status) { status.log += text; });
  }

  DeviceJob& job_;
  ToolOutput output_;
};

// The tool's exit status; nothing when it was left to itself.
std::optional<int> follow(ChildProcess& tool, DeviceJob& job, const ToolLimits& limits) {
  LoggedOutput log(job, limits);
  const ChildProcess::OutputHandler onOutput = [&](std::string_view piece) { log.add(piece); };
  while (!tool.pump(Clock::now() + limits.poll, onOutput)) {
    if (job.isToStop()) tool.terminate();
    if (!job.isToLeaveItsTool()) continue;
    tool.detachOnDestruction();
    return std::nullopt;
  }
  // A process that the tool left behind may hold the pipe; who cancelled does not wait for its words.
  tool.drain(Clock::now() + (job.isToStop() ? ToolLimits().poll : limits.outputAfterExit), onOutput);
  log.finish();
  return tool.terminationStatus().value_or(-1);
}

JobEnd makeInstallMedia(DeviceJob& job, const std::string& tool, const std::string& volume,
                        const ToolLimits& limits) {
  // The tool begins with erasing.
  if (job.isToStop()) return JobEnd::cancelled();
  std::optional<ChildProcess> process;
  try {
    process.emplace(ChildProcess::Options{
        tool, {"--volume", volume, "--nointeraction"}, ChildProcess::StandardInput::null});
  } catch (const std::system_error& error) {
    return JobEnd::failed(posixErrorDescription(error.code().value()));
  }
  const std::optional<int> status = follow(*process, job, limits);
  if (!status) return leftRunning("createinstallmedia");
  if (job.isToStop()) return JobEnd::cancelled();
  if (*status != 0) return JobEnd::failed("createinstallmedia exited " + std::to_string(*status));
  return {Phase::finished, "Done.\n"};
}

}  // namespace

void runInstallMedia(DeviceJob& job, const std::string& tool, const std::string& volume,
                     const ToolLimits& limits) {
  job.enter(Phase::running, "$ createinstallmedia --volume " + volume + " --nointeraction\n");
  job.end(makeInstallMedia(job, tool, volume, limits));
}

}  // namespace molvane
