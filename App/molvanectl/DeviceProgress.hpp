#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "HelperProtocol/DeviceJobStatus.hpp"

namespace molvane::ctl {

/// "999 bytes", "1.23 GB", "45.6 GB": at most three figures of a decimal unit. A negative count is shown as
/// none.
[[nodiscard]] std::string byteText(std::int64_t bytes);

/// "0:07", "59:59", "12:00:00"; from 100 hours on "over 99 h".
[[nodiscard]] std::string durationText(double seconds);

/// How far a pass of a device job has come, how fast, and how long it will still take.
///
/// Takes any figures that a status may hold: a total of 0 or less is one that is not known, and more done
/// than there is to do counts as all.
class DeviceProgress {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Another look at the job; times never go back. A new phase, or less done than before, begins a new pass.
  void update(const DeviceJobStatus& status, Time now);

  /// What was last looked at.
  [[nodiscard]] const DeviceJobStatus& status() const { return status_; }

  /// Whole percents, 100 only when all is done; nothing when the total is not known.
  [[nodiscard]] std::optional<int> percent() const;

  /// Bytes a second over the last seconds; nothing before there is enough to tell.
  [[nodiscard]] std::optional<double> rate() const;

  /// Seconds to the end of the pass; nothing when that cannot be told.
  [[nodiscard]] std::optional<double> secondsLeft() const;

  /// Since the pass began.
  [[nodiscard]] double secondsPassed() const;

 private:
  struct Sample {
    Time time;
    std::int64_t bytes;
  };

  DeviceJobStatus status_;
  Time began_;
  std::deque<Sample> samples_;
};

/// One line about the progress that fits into `columns`, with a bar where there is room and with less and
/// less where there is not. `word` says what is being done. `tail` is what a tool has written since its last
/// line ended; as much of its end as there is room for comes last.
[[nodiscard]] std::string progressLine(std::string_view word, const DeviceProgress& progress,
                                       std::size_t columns, std::string_view tail = {});

/// The same without a bar and at whatever length it takes.
[[nodiscard]] std::string progressSentence(std::string_view word, const DeviceProgress& progress);

}  // namespace molvane::ctl
