#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "HelperProtocol/DeviceJobStatus.hpp"

namespace molvane::ctl {

/// A number of bytes for people: "950 bytes", "1.20 GB".
[[nodiscard]] std::string byteText(std::int64_t bytes);

/// How far a job has come, how fast it goes and how long it will take, made of the statuses that are seen.
class DeviceProgress {
 public:
  using Clock = std::chrono::steady_clock;

  void add(const DeviceJobStatus& status, Clock::time_point now);

  /// There is an amount to measure by.
  [[nodiscard]] bool isMeasured() const { return total_ > 0; }

  /// One line of less than 80 columns, for a terminal.
  [[nodiscard]] std::string bar() const;

  /// A line for a log when another tenth of the pass is done; nothing in between.
  [[nodiscard]] std::optional<std::string> nextLine();

 private:
  struct Sample {
    Clock::time_point time;
    std::int64_t bytes;
  };

  [[nodiscard]] double bytesPerSecond() const;
  [[nodiscard]] int percent() const;

  std::optional<DeviceJobStatus::Phase> phase_;
  std::int64_t done_ = 0;
  std::int64_t total_ = 0;
  std::int64_t badBlocks_ = 0;
  std::deque<Sample> samples_;
  int tenthsSaid_ = 0;
};

}  // namespace molvane::ctl
