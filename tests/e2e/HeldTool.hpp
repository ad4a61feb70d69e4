#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "Harness.hpp"

namespace molvane::e2e {

/// Waits for a stand-in that holds (macroot/lib/standin.sh), and lets it go on or ends it.
class HeldTool {
 public:
  /// `directives` for the stand-in `tool` (NAME or NAME@WORD) until this object goes; one of them holds.
  HeldTool(const std::string& tool, const std::string& directives);

  /// Returns when the tool holds.
  void waitUntilHeld();
  /// Lets the tool go on.
  static void letGo();
  /// Lets the tool go on, and returns when no such tool runs any more.
  void letFinish();
  /// Ends every process of the tool.
  void killTool();
  /// The stand-in does nothing special from the next call on.
  void forget() { behaviour_.reset(); }

 private:
  [[nodiscard]] std::vector<pid_t> processes() const;

  std::string name_;
  LogFollower log_;
  std::optional<ToolBehaviour> behaviour_;
};

}  // namespace molvane::e2e
