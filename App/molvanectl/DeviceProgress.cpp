#include "molvanectl/DeviceProgress.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace molvane::ctl {
namespace {

using Phase = DeviceJobStatus::Phase;

// The rate is that of the last few seconds: a disk that slows down must show it.
constexpr std::chrono::seconds kWindow{5};
constexpr int kBarWidth = 20;

std::string verbOf(Phase phase) {
  switch (phase) {
    case Phase::queued:
      return "Waiting";
    case Phase::verifying:
      return "Verifying";
    default:
      return "Copying";
  }
}

std::string timeText(double seconds) {
  constexpr double kLongest = 100 * 3600;
  if (!(seconds < kLongest)) return "--:--";
  const auto whole = static_cast<long>(std::ceil(seconds));
  if (whole < 3600) return fmt::format("{}:{:02}", whole / 60, whole % 60);
  return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

}  // namespace

std::string byteText(std::int64_t bytes) {
  if (bytes < 1000) return fmt::format("{} bytes", bytes);
  constexpr std::array<const char*, 6> kUnits = {"kB", "MB", "GB", "TB", "PB", "EB"};
  double value = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  while (value >= 999.5 && unit + 1 < kUnits.size()) {
    value /= 1000;
    ++unit;
  }
  const int decimals = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
  return fmt::format("{:.{}f} {}", value, decimals, kUnits[unit]);
}

void DeviceProgress::add(const DeviceJobStatus& status, Clock::time_point now) {
  if (phase_ != status.phase || status.bytesDone < done_) {
    samples_.clear();
    tenthsSaid_ = 0;
  }
  phase_ = status.phase;
  done_ = status.bytesDone;
  total_ = status.bytesTotal;
  badBlocks_ = status.badBlocks;
  samples_.push_back({now, done_});
  while (samples_.size() > 2 && now - samples_[1].time >= kWindow) samples_.pop_front();
}

double DeviceProgress::bytesPerSecond() const {
  if (samples_.empty()) return 0;
  const std::chrono::duration<double> time = samples_.back().time - samples_.front().time;
  if (time.count() <= 0) return 0;
  return static_cast<double>(samples_.back().bytes - samples_.front().bytes) / time.count();
}

int DeviceProgress::percent() const {
  if (total_ <= 0) return 0;
  // A hundred is said when it is all there, and not before.
  return static_cast<int>(std::clamp(static_cast<double>(done_) / static_cast<double>(total_) * 100, 0.0,
                                     done_ < total_ ? 99.0 : 100.0));
}

std::string DeviceProgress::bar() const {
  const int filled = percent() * kBarWidth / 100;
  std::string line = fmt::format("{:<9} [{}{}] {:>3}%  {} of {}", verbOf(phase_.value_or(Phase::queued)),
                                 std::string(static_cast<std::size_t>(filled), '#'),
                                 std::string(static_cast<std::size_t>(kBarWidth - filled), '.'), percent(),
                                 byteText(done_), byteText(total_));
  const double rate = bytesPerSecond();
  if (rate >= 1 && done_ < total_) {
    line += fmt::format("  {}/s  {}", byteText(static_cast<std::int64_t>(rate)),
                        timeText(static_cast<double>(total_ - done_) / rate));
  }
  if (badBlocks_ > 0) line += fmt::format("  {} bad", badBlocks_);
  return line;
}

std::optional<std::string> DeviceProgress::nextLine() {
  const int tenths = percent() / 10;
  if (!isMeasured() || tenths <= tenthsSaid_) return std::nullopt;
  tenthsSaid_ = tenths;
  std::string line = fmt::format("{}: {}%, {} of {}", verbOf(phase_.value_or(Phase::queued)), percent(),
                                 byteText(done_), byteText(total_));
  const double rate = bytesPerSecond();
  if (rate >= 1) line += fmt::format(", {}/s", byteText(static_cast<std::int64_t>(rate)));
  return line;
}

}  // namespace molvane::ctl
