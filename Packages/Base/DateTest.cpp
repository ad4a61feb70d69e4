#include "Base/Date.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace molvane {
namespace {

TEST(Date, TextIsReadAndWrittenInWholeSeconds) {
  const std::optional<Date> date = dateFromIso8601("2026-11-22T10:00:00Z");
  ASSERT_TRUE(date);
  EXPECT_EQ(date->unixSeconds(), 1795341600);
  EXPECT_EQ(iso8601Text(*date), "2026-11-22T10:00:00Z");
  EXPECT_EQ(iso8601Text({date->secondsSinceReference + 0.999}), "2026-11-22T10:00:00Z");
  EXPECT_EQ(iso8601Text({-0.25}), "2000-12-31T23:59:59Z");
  EXPECT_EQ(iso8601Text({0}), "2001-01-01T00:00:00Z");
}

TEST(Date, OffsetsAreTakenOff) {
  EXPECT_EQ(iso8601Text(dateFromIso8601("2026-11-22T10:00:00+01:30").value()), "2026-11-22T08:30:00Z");
  EXPECT_EQ(iso8601Text(dateFromIso8601("2024-02-28T23:00:00-08:00").value()), "2024-02-29T07:00:00Z");
}

TEST(Date, OtherTextsAreRefused) {
  for (const char* bad :
       {"", "2026-11-22", "2026-11-22 10:00:00Z", "2026-11-22T10:00Z", "2026-11-22T10:00:00",
        "2026-11-22T10:00:00z", "2026-11-22T10:00:00.5Z", "2026-11-22T10:00:00Z ", "2026-11-22T24:00:00Z",
        "2026-11-22T10:60:00Z", "2026-11-22T10:00:60Z", "2023-02-29T00:00:00Z", "2026-13-01T00:00:00Z",
        "2026-00-01T00:00:00Z", "0000-01-01T00:00:00Z", "+026-11-22T10:00:00Z", "2026-11-22T10:00:00+0100",
        "2026-11-22T10:00:00+24:00"}) {
    EXPECT_FALSE(dateFromIso8601(bad)) << bad;
  }
}

TEST(Date, OnlyFourDigitYearsCanBeWritten) {
  for (const char* edge : {"0001-01-01T00:00:00Z", "9999-12-31T23:59:59Z"}) {
    EXPECT_EQ(iso8601Text(dateFromIso8601(edge).value()), edge);
  }
  for (const double bad : {-1e12, 1e19, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_THROW((void)iso8601Text({bad}), std::out_of_range) << bad;
  }
}

}  // namespace
}  // namespace molvane
