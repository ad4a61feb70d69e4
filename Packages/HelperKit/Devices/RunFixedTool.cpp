#include <optional>
#include <string_view>

#include "Base/NSError.hpp"
#include "Base/PathText.hpp"
#include "Base/Text.hpp"
#include "HelperKit/Devices/DeviceJobWork.hpp"
#include "HelperKit/Devices/ToolOutput.hpp"
#include "Platform/ChildProcess.hpp"

namespace molvane {
namespace {

using Clock = ChildProcess::Clock;
using Phase = DeviceJobStatus::Phase;

JobEnd runTool(DeviceJob& job, const std::string& executable, const std::vector<std::string>& arguments,
               const ToolLimits& limits) {
  std::optional<ChildProcess> tool;
  try {
    tool.emplace(ChildProcess::Options{executable, arguments, ChildProcess::StandardInput::null});
  } catch (const std::system_error& error) {
    return JobEnd::failed(posixErrorDescription(error.code().value()));
  }
  ToolOutput output(limits.kibibytesKept);
  std::string text;
  const ChildProcess::OutputHandler onOutput = [&](std::string_view piece) { text += output.textOf(piece); };
  while (!tool->pump(Clock::now() + limits.poll, onOutput)) {
    if (!job.isToLeaveItsTool()) continue;
    tool->detachOnDestruction();
    return leftRunning(lastPathComponent(executable));
  }
  tool->drain(Clock::now() + limits.outputAfterExit, onOutput);
  text += output.rest();

  job.update([&](DeviceJobStatus& status) { status.log += text; });
  const int status = tool->terminationStatus().value_or(-1);
  if (status == 0) return {Phase::finished, "Done.\n"};
  return JobEnd::failed(lastPathComponent(executable) + " exited " + std::to_string(status) + ": " +
                        trimmingWhitespaceAndNewlines(text));
}

}  // namespace

void runFixedTool(DeviceJob& job, const std::string& executable, const std::vector<std::string>& arguments,
                  const ToolLimits& limits) {
  std::string line = "$ " + lastPathComponent(executable) + " ";
  for (std::size_t i = 0; i < arguments.size(); ++i) line += (i == 0 ? "" : " ") + arguments[i];
  job.enter(Phase::running, line + "\n");
  job.end(runTool(job, executable, arguments, limits));
}

}  // namespace molvane
