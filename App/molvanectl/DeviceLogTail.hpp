#pragma once

#include <string>

namespace molvane::ctl {

/// What is new in a log that is read as a whole again and again.
class DeviceLogTail {
 public:
  /// What has come to `log` since the last call. Of a log that has lost its beginning, what follows the last
  /// kilobyte that was there before; of one that does not hold that any more, all of it. One that has only
  /// become shorter has nothing new.
  [[nodiscard]] std::string take(const std::string& log);

 private:
  std::string taken_;
};

}  // namespace molvane::ctl
