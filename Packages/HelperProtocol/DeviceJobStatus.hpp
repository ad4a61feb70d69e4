#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "Base/JsonMembers.hpp"

namespace molvane {

/// What a device job has come to. It travels as a JSON object. A plain value; the one that is made without
/// arguments is that of a job that has just been registered.
struct DeviceJobStatus {
  /// In the order of a job's life; the last three are terminal.
  enum class Phase { queued, running, verifying, finished, failed, cancelled };

  Phase phase = Phase::queued;
  std::int64_t bytesDone = 0;              ///< in the current pass: written, read or verified
  std::int64_t bytesTotal = 0;             ///< of the pass; 0 when it cannot be known
  std::int64_t badBlocks = 0;              ///< blocks of the device that could not be read
  std::optional<std::string> sha256 = {};  ///< of the data moved, 64 lower-case hexadecimal digits
  std::string log = {};                    ///< for the person; lines end with a newline
  std::optional<std::string> error = {};   ///< why the job failed; only then

  /// The job has ended, one way or another.
  [[nodiscard]] bool isTerminal() const noexcept { return phase >= Phase::finished; }

  static constexpr auto members() {
    return std::tuple(
        JsonMember{"phase", &DeviceJobStatus::phase}, JsonMember{"bytesDone", &DeviceJobStatus::bytesDone},
        JsonMember{"bytesTotal", &DeviceJobStatus::bytesTotal},
        JsonMember{"badBlocks", &DeviceJobStatus::badBlocks}, JsonMember{"sha256", &DeviceJobStatus::sha256},
        JsonMember{"log", &DeviceJobStatus::log}, JsonMember{"error", &DeviceJobStatus::error});
  }
};

/// The phase as it stands in a document.
[[nodiscard]] std::string_view rawValue(DeviceJobStatus::Phase phase);

/// Throws a DecodingError for a text that is no phase.
void fromJson(const JsonValue& json, DeviceJobStatus::Phase& phase);
[[nodiscard]] JsonValue toJson(DeviceJobStatus::Phase phase);

}  // namespace molvane
