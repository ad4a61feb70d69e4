#include "molvanectl/DeviceProgress.hpp"

#include <fmt/format.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <array>

#include "Base/Utf8.hpp"
#include "molvanectl/TerminalText.hpp"

namespace molvane::ctl {
namespace {

// At four looks a second: the last ten seconds.
constexpr std::size_t kMostSamples = 40;
constexpr double kShortestSpan = 1;
constexpr std::size_t kNarrowestBar = 7;
constexpr std::size_t kWidestBar = 32;
constexpr std::string_view kGap = "  ";

double secondsBetween(DeviceProgress::Time from, DeviceProgress::Time to) {
  return std::chrono::duration<double>(to - from).count();
}

std::size_t columnsOf(char32_t scalar) {
  const int width = u_getIntPropertyValue(static_cast<UChar32>(scalar), UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

/// The end of `text` that fits.
std::string_view endOf(std::string_view text, std::size_t columns) {
  std::size_t width = 0;
  for (const char32_t scalar : Utf8Scalars(text)) width += columnsOf(scalar);
  while (width > columns) {
    const LeadingScalar first = leadingScalar(text);
    width -= columnsOf(first.value);
    text.remove_prefix(first.length);
  }
  return text;
}

std::string amountText(const DeviceJobStatus& status) {
  if (status.bytesTotal <= 0) return status.bytesDone > 0 ? byteText(status.bytesDone) : std::string();
  return byteText(status.bytesDone) + " of " + byteText(status.bytesTotal);
}

std::string rateText(const DeviceProgress& progress) {
  const std::optional<double> rate = progress.rate();
  return rate ? byteText(static_cast<std::int64_t>(std::min(*rate, 9e18))) + "/s" : std::string();
}

std::string leftText(const DeviceProgress& progress) {
  const std::optional<double> seconds = progress.secondsLeft();
  return seconds ? durationText(*seconds) + " left" : std::string();
}

std::string unreadableText(std::int64_t blocks) {
  return blocks > 0 ? std::to_string(blocks) + " unreadable" : std::string();
}

/// The parts of a line, in their order on it.
enum Part : std::size_t { word, percent, amount, rate, left, unreadable, passed, partCount };
using Parts = std::array<std::string, partCount>;

// What a narrow line gives up last comes first.
constexpr std::array<Part, partCount> kByImportance = {word, percent, unreadable, left, passed, rate, amount};

Parts partsOf(std::string_view said, const DeviceProgress& progress) {
  const DeviceJobStatus& status = progress.status();
  Parts parts;
  parts[word] = said;
  if (status.phase == DeviceJobStatus::Phase::queued) return parts;
  if (const auto percents = progress.percent()) parts[percent] = std::to_string(*percents) + "%";
  parts[amount] = amountText(status);
  parts[rate] = rateText(progress);
  parts[left] = leftText(progress);
  parts[unreadable] = unreadableText(status.badBlocks);
  if (status.bytesTotal <= 0) parts[passed] = durationText(progress.secondsPassed());
  return parts;
}

std::string bar(int percents, std::size_t width) {
  const std::size_t inner = width - 2;
  const std::size_t filled = inner * static_cast<std::size_t>(percents) / 100;
  std::string inside(filled, '=');
  if (filled < inner) inside += '>';
  inside.resize(inner, ' ');
  return "[" + inside + "]";
}

}  // namespace

std::string byteText(std::int64_t bytes) {
  if (bytes < 1000)
    return bytes == 1 ? "1 byte" : std::to_string(std::max<std::int64_t>(bytes, 0)) + " bytes";
  constexpr std::array<std::string_view, 6> kUnits = {"kB", "MB", "GB", "TB", "PB", "EB"};
  double value = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  for (; value >= 999.5 && unit + 1 < kUnits.size(); ++unit) value /= 1000;
  const int decimals = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
  return fmt::format("{:.{}f} {}", value, decimals, kUnits[unit]);
}

std::string durationText(double seconds) {
  constexpr double kLongest = 100 * 3600;
  if (!(seconds < kLongest)) return "over 99 h";
  const auto whole = static_cast<int>(std::max(seconds, 0.0));
  if (whole < 3600) return fmt::format("{}:{:02}", whole / 60, whole % 60);
  return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

void DeviceProgress::update(const DeviceJobStatus& status, Time now) {
  if (samples_.empty() || status.phase != status_.phase || status.bytesDone < status_.bytesDone) {
    samples_.clear();
    began_ = now;
  }
  status_ = status;
  samples_.push_back({now, std::max<std::int64_t>(status.bytesDone, 0)});
  if (samples_.size() > kMostSamples) samples_.pop_front();
}

std::optional<int> DeviceProgress::percent() const {
  if (status_.bytesTotal <= 0) return std::nullopt;
  if (status_.bytesDone >= status_.bytesTotal) return 100;
  const double share = static_cast<double>(status_.bytesDone) / static_cast<double>(status_.bytesTotal);
  return std::clamp(static_cast<int>(share * 100), 0, 99);
}

std::optional<double> DeviceProgress::rate() const {
  if (samples_.empty()) return std::nullopt;
  const double seconds = secondsBetween(samples_.front().time, samples_.back().time);
  const std::int64_t bytes = samples_.back().bytes - samples_.front().bytes;
  if (seconds < kShortestSpan || bytes <= 0) return std::nullopt;
  return static_cast<double>(bytes) / seconds;
}

std::optional<double> DeviceProgress::secondsLeft() const {
  const std::optional<double> speed = rate();
  if (!speed || status_.bytesTotal <= 0 || status_.bytesDone >= status_.bytesTotal) return std::nullopt;
  return static_cast<double>(status_.bytesTotal - std::max<std::int64_t>(status_.bytesDone, 0)) / *speed;
}

double DeviceProgress::secondsPassed() const {
  return samples_.empty() ? 0 : secondsBetween(began_, samples_.back().time);
}

std::string progressLine(std::string_view said, const DeviceProgress& progress, std::size_t columns,
                         std::string_view tail) {
  // Many terminals break the line as soon as its last column is used.
  const std::size_t room = columns > 1 ? columns - 1 : 1;
  Parts parts = partsOf(said, progress);
  // As wide at 1% as at 100%, so that the bar stands still.
  if (!parts[percent].empty()) parts[percent].insert(0, 4 - parts[percent].size(), ' ');
  std::array<bool, partCount> kept{};
  std::size_t used = 0;
  for (const Part part : kByImportance) {
    const std::size_t needed = parts[part].size() + (used > 0 ? kGap.size() : 0);
    kept[part] = !parts[part].empty() && used + needed <= room;
    if (kept[part]) used += needed;
  }
  const std::size_t over = room - used;
  const bool drawn = kept[percent] && over >= kNarrowestBar + kGap.size();

  std::string line;
  for (std::size_t part = 0; part < partCount; ++part) {
    if (!kept[part]) continue;
    if (!line.empty()) line += kGap;
    line += parts[part];
    if (part == percent && drawn) {
      line.append(kGap).append(bar(*progress.percent(), std::min(over - kGap.size(), kWidestBar)));
    }
  }
  if (line.empty()) return parts[word].substr(0, room);
  if (!tail.empty() && !drawn && over > kGap.size()) {
    std::string shown = visibleText(tail);
    std::replace(shown.begin(), shown.end(), '\t', ' ');
    line.append(kGap).append(endOf(shown, over - kGap.size()));
  }
  return line;
}

std::string progressSentence(std::string_view said, const DeviceProgress& progress) {
  const Parts parts = partsOf(said, progress);
  std::string sentence = parts[word];
  std::string_view separator = ": ";
  for (std::size_t part = percent; part < partCount; ++part) {
    if (parts[part].empty()) continue;
    sentence.append(separator).append(parts[part]);
    separator = ", ";
  }
  return sentence;
}

}  // namespace molvane::ctl
