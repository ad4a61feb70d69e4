#pragma once

#include <string>
#include <string_view>

namespace molvane::ctl {

/// What is said about a job that its status does not tell.
struct DeviceJobWords {
  std::string running = "running";  ///< what it does in the phase of that name, in one word
  std::string done = "The job has finished.";
  std::string leftBehind = {};  ///< what it may leave when it does not finish; whole sentences, or empty
  std::string allWritten = {};  ///< what it leaves once it only verifies; without a full stop, or empty
  bool showsLog = true;         ///< whether its log is for the person to follow
  bool cleansUp = false;        ///< whether it leaves nothing when it is cancelled
};

/// When a job ends that nobody ordered to.
inline constexpr std::string_view kJobLifetime =
    "The helper ends some time after its last client has gone; a job that still runs then is broken off, and "
    "what became of it can no longer be asked for.";

}  // namespace molvane::ctl
