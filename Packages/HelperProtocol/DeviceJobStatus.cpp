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

}  // namespace molvane
