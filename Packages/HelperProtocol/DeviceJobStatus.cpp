#include "HelperProtocol/DeviceJobStatus.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace molvane {
namespace {

constexpr std::array<std::string_view, 6> kPhases = {"queued",   "running", "verifying",
                                                     "finished", "failed",  "cancelled"};

}  // namespace

std::string_view rawValue(DeviceJobStatus::Phase phase) {
  return kPhases.at(static_cast<std::size_t>(phase));
}

void fromJson(const JsonValue& json, DeviceJobStatus::Phase& phase) {
  std::string text;
  fromJson(json, text);
  const auto* const found = std::find(kPhases.begin(), kPhases.end(), text);
  if (found == kPhases.end()) throwUnknownCase();
  phase = static_cast<DeviceJobStatus::Phase>(found - kPhases.begin());
}

JsonValue toJson(DeviceJobStatus::Phase phase) { return toJson(std::string(rawValue(phase))); }

void fromJson(const JsonValue& json, DeviceJobStatus& status) {
  const JsonObjectReader object(json);
  object.read("phase", status.phase);
  object.read("bytesDone", status.bytesDone);
  object.read("bytesTotal", status.bytesTotal);
  object.read("badBlocks", status.badBlocks);
  object.read("sha256", status.sha256);
  object.read("log", status.log);
  object.read("error", status.error);
}

JsonValue toJson(const DeviceJobStatus& status) {
  return JsonObjectWriter()
      .add("phase", status.phase)
      .add("bytesDone", status.bytesDone)
      .add("bytesTotal", status.bytesTotal)
      .add("badBlocks", status.badBlocks)
      .add("sha256", status.sha256)
      .add("log", status.log)
      .add("error", status.error)
      .take();
}

}  // namespace molvane
