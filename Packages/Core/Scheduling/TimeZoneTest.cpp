#include "Core/Scheduling/TimeZone.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Core/Scheduling/PosixTimeZone.hpp"
#include "Core/Scheduling/TimeZoneRules.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

/// Sets TZ for as long as it lives.
class ZoneVariable {
 public:
  explicit ZoneVariable(const char* value) {
    const char* const before = std::getenv("TZ");
    if (before != nullptr) before_ = before;
    ::setenv("TZ", value, 1);
    ::tzset();
  }
  ~ZoneVariable() {
    if (before_) {
      ::setenv("TZ", before_->c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }
  ZoneVariable(const ZoneVariable&) = delete;
  ZoneVariable& operator=(const ZoneVariable&) = delete;

 private:
  std::optional<std::string> before_;
};

std::string zoneFile(const std::string& name) {
  std::ostringstream bytes;
  bytes << std::ifstream("/usr/share/zoneinfo/" + name, std::ios::binary).rdbuf();
  return bytes.str();
}

std::vector<std::string> zoneNames() {
  std::ifstream table("/usr/share/zoneinfo/tzdata.zi");
  std::vector<std::string> names;
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string kind;
    std::string name;
    std::string alias;
    fields >> kind >> name >> alias;
    if (kind == "Z") names.push_back(name);
    if (kind == "L") names.push_back(alias);
  }
  return names;
}

// The C library reads the same files by code of its own, up to its limits: it follows the last rule for ever
// too.
TEST(TimeZone, EveryZoneOfTheSystemAgreesWithTheCLibrary) {
  constexpr std::int64_t kFirst = -4000000000;  // 1843
  constexpr std::int64_t kLast = 20000000000;   // 2603
  constexpr std::int64_t kStep = 9000011;       // a hundred days and some
  std::size_t zones = 0;
  for (const std::string& name : zoneNames()) {
    const std::optional<TimeZone> zone = TimeZone::named(name);
    if (!zone) continue;  // the table also knows zones that the system does not install
    ++zones;
    const ZoneVariable variable(name.c_str());
    for (std::int64_t moment = kFirst; moment < kLast; moment += kStep) {
      const std::time_t time = moment;
      std::tm local{};
      ::localtime_r(&time, &local);
      ASSERT_EQ(zone->rules().offsetAt(moment), local.tm_gmtoff) << name << " at " << moment;
    }
  }
  EXPECT_GT(zones, 300U);
}

TEST(TimeZone, RulesAsText) {
  struct Case {
    std::string text;
    bool readable;
    std::int32_t standardOffset;
  };
  const std::vector<Case> cases = {
      {"UTC0", true, 0},
      {"<+0530>-5:30", true, 19800},
      {"CET-1CEST,M3.5.0,M10.5.0/3", true, 3600},
      {"EST5EDT", true, -18000},
      {"<-03>3<-02>,M3.5.0/-1,M10.5.0/0", true, -10800},
      {"AAA0:00:07BBB,J60/167,365/-167:59:59", true, -7},
      {"", false, 0},
      {"CET", false, 0},
      {"CE-1", false, 0},
      {"<>-1", false, 0},
      {"<CET-1", false, 0},
      {"CET-25", false, 0},
      {"CET-1CEST,M3.5.0", false, 0},
      {"CET-1CEST,M13.5.0,M10.5.0", false, 0},
      {"CET-1CEST,M3.6.0,M10.5.0", false, 0},
      {"CET-1CEST,M3.5.7,M10.5.0", false, 0},
      {"CET-1CEST,M3.5.0/168,M10.5.0", false, 0},
      {"CET-1CEST,J0,J365", false, 0},
      {"CET-1CEST,366,0", false, 0},
      {"CET-1CEST,M3.5.0,M10.5.0/3 ", false, 0},
      {"CET-00000000000000000001", false, 0},
  };
  for (const Case& each : cases) {
    const std::optional<PosixTimeZone> zone = PosixTimeZone::parse(each.text);
    ASSERT_EQ(zone.has_value(), each.readable) << each.text;
    EXPECT_EQ(zone ? zone->standardOffset() : 0, each.standardOffset) << each.text;
  }
}

TEST(TimeZone, RulesAsTextAgreeWithTheCLibrary) {
  for (const char* const text : {"CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT", "AEST-10AEDT,M10.1.0,M4.1.0/3",
                                 "<-02>2<-01>,M3.5.0/-1,M10.5.0/0", "AAA3BBB,J60/2,J300/2",
                                 "AAA3BBB,59/0,300/25", "XXX-1:30YYY-3,M2.1.1/30,M8.4.6/-30", "ZZZ-14"}) {
    const ZoneVariable variable(text);
    const TimeZone zone = TimeZone::current();
    ASSERT_EQ(zone.identifier(), text);
    for (std::int64_t moment = 0; moment < 16000000000; moment += 1234567) {
      const std::time_t time = moment;
      std::tm local{};
      ::localtime_r(&time, &local);
      ASSERT_EQ(zone.rules().offsetAt(moment), local.tm_gmtoff) << text << " at " << moment;
    }
  }
}

TEST(TimeZone, CurrentIsWhatThePersonChose) {
  const auto chosen = [](const char* variable) {
    const ZoneVariable set(variable);
    return TimeZone::current();
  };
  EXPECT_EQ(chosen("Asia/Tehran"), *TimeZone::named("Asia/Tehran"));
  EXPECT_EQ(chosen(":Asia/Tehran"), *TimeZone::named("Asia/Tehran"));
  EXPECT_EQ(chosen("/usr/share/zoneinfo/Asia/Tehran"), *TimeZone::named("Asia/Tehran"));
  const TemporaryFolder folder;
  const std::string file = folder.path() + "/zone";
  std::ofstream(file, std::ios::binary) << zoneFile("Asia/Tehran");
  EXPECT_EQ(chosen((":" + file).c_str()).identifier(), file);
  EXPECT_EQ(chosen(file.c_str()).rules().offsetAt(1700000000), 12600);
  EXPECT_EQ(chosen(folder.path().c_str()), TimeZone::utc());
  std::ofstream(file, std::ios::binary) << "no zone";
  EXPECT_THROW((void)chosen(file.c_str()), std::runtime_error);
  EXPECT_EQ(chosen(""), TimeZone::utc());
  EXPECT_EQ(chosen("Nowhere/Land"), TimeZone::utc());
}

TEST(TimeZone, NamesLeadNowhereElse) {
  for (const char* const name : {"", "Europe", "Europe/Atlantis", "../zoneinfo/GMT",
                                 "/usr/share/zoneinfo/GMT", "Europe/../GMT", "GMT ", "tzdata.zi"}) {
    EXPECT_FALSE(TimeZone::named(name)) << name;
  }
  EXPECT_THROW((void)TimeZone::named("leapseconds"), std::runtime_error);
}

TEST(TimeZone, DamagedFilesAreRefused) {
  const std::string good = zoneFile("Europe/Berlin");
  ASSERT_NO_THROW((void)TimeZoneRules::fromZoneInfo(good));
  for (std::size_t size = 0; size < good.size(); ++size) {
    EXPECT_THROW((void)TimeZoneRules::fromZoneInfo(good.substr(0, size)), std::runtime_error) << size;
  }
  EXPECT_THROW((void)TimeZoneRules::fromZoneInfo(zoneFile("right/Europe/Berlin")), std::runtime_error);
  for (std::size_t at = 0; at < good.size(); ++at) {
    std::string damaged = good;
    damaged[at] = static_cast<char>(~static_cast<unsigned char>(damaged[at]));
    try {  // any byte may go unnoticed, none may do harm
      (void)TimeZoneRules::fromZoneInfo(damaged).momentOf(1800000000);
    } catch (const std::runtime_error&) {
      continue;
    }
  }
}

}  // namespace
}  // namespace molvane
