#include "molvanectl/DeviceProgress.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "Base/Utf8.hpp"
#include "molvanectl/DeviceLogTail.hpp"

namespace molvane::ctl {
namespace {

using Phase = DeviceJobStatus::Phase;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

DeviceJobStatus running(std::int64_t done, std::int64_t total, Phase phase = Phase::running) {
  DeviceJobStatus status;
  status.phase = phase;
  status.bytesDone = done;
  status.bytesTotal = total;
  return status;
}

DeviceProgress::Time at(double seconds) {
  return DeviceProgress::Time(std::chrono::hours(1)) +
         std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

std::size_t scalars(const std::string& text) {
  std::size_t count = 0;
  for ([[maybe_unused]] const char32_t scalar : Utf8Scalars(text)) ++count;
  return count;
}

TEST(DeviceProgressText, HasThreeFiguresAndNoUnitTooSmall) {
  const std::pair<std::int64_t, const char*> amounts[] = {
      {0, "0 bytes"},       {1, "1 byte"},
      {999, "999 bytes"},   {1000, "1.00 kB"},
      {9994, "9.99 kB"},    {9996, "10.0 kB"},
      {99'960, "100 kB"},   {999'499, "999 kB"},
      {999'500, "1.00 MB"}, {2'900'000'000, "2.90 GB"},
      {kMost, "9.22 EB"},   {-5, "0 bytes"},
      {kLeast, "0 bytes"},
  };
  for (const auto& [bytes, text] : amounts) EXPECT_EQ(byteText(bytes), text) << bytes;

  const std::pair<double, const char*> durations[] = {
      {0, "0:00"},          {7.9, "0:07"},         {3599.9, "59:59"},
      {3600, "1:00:00"},    {359'999, "99:59:59"}, {360'000, "over 99 h"},
      {1e300, "over 99 h"}, {-3, "0:00"},          {std::numeric_limits<double>::quiet_NaN(), "over 99 h"},
  };
  for (const auto& [seconds, text] : durations) EXPECT_EQ(durationText(seconds), text) << seconds;
}

TEST(DeviceProgress, TellsRateAndTimeLeftOfThePassAlone) {
  DeviceProgress progress;
  progress.update(running(0, 1000), at(0));
  EXPECT_EQ(progress.percent(), 0);
  EXPECT_FALSE(progress.rate());
  progress.update(running(100, 1000), at(0.5));
  EXPECT_FALSE(progress.rate()) << "too short to tell";
  progress.update(running(400, 1000), at(2));
  EXPECT_DOUBLE_EQ(progress.rate().value(), 200);
  EXPECT_DOUBLE_EQ(progress.secondsLeft().value(), 3);

  progress.update(running(0, 1000, Phase::verifying), at(3));
  EXPECT_FALSE(progress.rate());
  progress.update(running(1000, 1000, Phase::verifying), at(5));
  EXPECT_EQ(progress.percent(), 100);
  EXPECT_DOUBLE_EQ(progress.rate().value(), 500);
  EXPECT_FALSE(progress.secondsLeft());

  // Less than before begins anew; a device that stands still has no rate, however long it stands.
  progress.update(running(10, 1000, Phase::verifying), at(6));
  for (int i = 0; i < 200; ++i) progress.update(running(20, 1000, Phase::verifying), at(7 + i));
  EXPECT_FALSE(progress.rate());
  EXPECT_FALSE(progress.secondsLeft());
}

TEST(DeviceProgress, TakesAnyFigures) {
  struct Case {
    std::int64_t done;
    std::int64_t total;
    std::optional<int> percent;
  };
  for (const Case& each :
       {Case{kMost, kMost, 100}, Case{kMost - 1, kMost, 99}, Case{0, kMost, 0}, Case{kLeast, kMost, 0},
        Case{kMost, 1, 100}, Case{5, 0, std::nullopt}, Case{5, -7, std::nullopt},
        Case{kMost, kLeast, std::nullopt}, Case{999'999, 1'000'000, 99}}) {
    DeviceProgress progress;
    progress.update(running(0, each.total), at(0));
    DeviceJobStatus status = running(each.done, each.total);
    status.badBlocks = each.done;
    progress.update(status, at(2));
    EXPECT_EQ(progress.percent(), each.percent) << each.done << " of " << each.total;
    for (std::size_t columns = 0; columns <= 200; ++columns) {
      const std::string line = progressLine("verifying", progress, columns, "tail");
      EXPECT_LE(line.size(), std::max<std::size_t>(columns, 2) - 1) << line;
      EXPECT_GT(line.size(), 0U);
      EXPECT_THAT(line, Not(HasSubstr("-")));
    }
  }
}

TEST(DeviceProgressLine, GivesUpTheLeastImportantFirst) {
  DeviceProgress progress;
  progress.update(running(0, 2'000'000'000), at(0));
  DeviceJobStatus status = running(500'000'000, 2'000'000'000);
  status.badBlocks = 3;
  progress.update(status, at(5));
  const auto line = [&](std::size_t columns) { return progressLine("reading", progress, columns); };
  EXPECT_EQ(line(120),
            "reading   25%  [=======>                      ]  500 MB of 2.00 GB  100 MB/s  0:15 left  3 "
            "unreadable");
  EXPECT_EQ(line(80), "reading   25%  [==>     ]  500 MB of 2.00 GB  100 MB/s  0:15 left  3 unreadable");
  EXPECT_EQ(line(70), "reading   25%  500 MB of 2.00 GB  100 MB/s  0:15 left  3 unreadable");
  EXPECT_EQ(line(60), "reading   25%  [=>     ]  100 MB/s  0:15 left  3 unreadable");
  EXPECT_EQ(line(41), "reading   25%  0:15 left  3 unreadable");
  EXPECT_EQ(line(31), "reading   25%  3 unreadable");
  EXPECT_EQ(line(20), "reading   25%");
  EXPECT_EQ(line(8), "reading");
  EXPECT_EQ(line(4), "rea");
  EXPECT_EQ(progressSentence("reading", progress),
            "reading: 25%, 500 MB of 2.00 GB, 100 MB/s, 0:15 left, 3 unreadable");

  DeviceProgress queued;
  queued.update(running(0, 2'000'000'000, Phase::queued), at(0));
  EXPECT_EQ(progressLine("queued", queued, 80), "queued");
}

TEST(DeviceProgressLine, EndsWithWhatAToolIsSaying) {
  DeviceProgress progress;
  progress.update(running(0, 0), at(0));
  progress.update(running(0, 0), at(62));
  EXPECT_EQ(progressLine("running", progress, 80, "Erasing: 10%... 20%..."),
            "running  1:02  Erasing: 10%... 20%...");
  EXPECT_EQ(progressLine("running", progress, 30, "Erasing: 10%... 20%..."), "running  1:02   10%... 20%...");
  EXPECT_EQ(progressLine("running", progress, 80, "\x1b[2J\tx\x07"), "running  1:02  \\x1b[2J x\\x07");
  for (std::size_t columns = 16; columns < 60; ++columns) {
    // Each of them is two columns wide.
    const std::string line = progressLine("running", progress, columns, "日本日本日本日本日本");
    EXPECT_LT(13 + 2 * (scalars(line) - 13), columns + 2) << line;
    EXPECT_TRUE(isValidUtf8(line));
  }
}

TEST(DeviceLogTail, GivesWhatIsNewWhateverHasBecomeOfTheRest) {
  DeviceLogTail tail;
  EXPECT_EQ(tail.take(""), "");
  EXPECT_EQ(tail.take("a\n"), "a\n");
  EXPECT_EQ(tail.take("a\nb"), "b");
  EXPECT_EQ(tail.take("a\nb"), "");
  EXPECT_EQ(tail.take("a\n"), "") << "shorter than before";
  EXPECT_EQ(tail.take("a\nbc"), "c");
  EXPECT_EQ(tail.take("other"), "other");

  std::string log;
  for (int i = 0; i < 1000; ++i) log += std::to_string(i) + "\n";
  EXPECT_EQ(tail.take(log), log);
  EXPECT_EQ(tail.take(log.substr(2000) + "more\n"), "more\n") << "without its beginning";
}

}  // namespace
}  // namespace molvane::ctl
