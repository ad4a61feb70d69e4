#include <unicode/gregocal.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Benchmarks.hpp"
#include "Core/PasteGuard.hpp"
#include "Core/Scheduling/ScheduleStore.hpp"
#include "Measuring.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane::bench {

namespace {

constexpr std::size_t kTextSize = std::size_t{64} << 20U;
constexpr int kRounds = 9;
constexpr int kNothingFound = 1;  // the exit status of grep and rg

// What check looks for, as one class of characters in the language of both tools.
constexpr const char* kClasses =
    "[\\x{2066}-\\x{2069}\\x{200E}\\x{200F}\\x{202A}-\\x{202E}\\x{061C}\\x{2060}-\\x{2064}\\x{200B}-\\x{200D}"
    "\\x{AD}"
    "\\x{180E}\\x{FEFF}\\x{00}-\\x{08}\\x{0B}\\x{0C}\\x{0E}-\\x{1F}\\x{7F}-\\x{9F}\\x{2010}-\\x{2015}\\x{"
    "2018}"
    "\\x{2019}\\x{201C}\\x{201D}\\x{2212}\\x{FF01}-\\x{FF5E}\\x{0370}-\\x{04FF}]";

void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

// Both run once before they count.
Comparison compare(std::string name, const Work& ours, const Work& peer, double atMost) {
  return compareInTurns({.name = std::move(name), .unit = "ms", .atMost = atMost},
                        {.counted = kRounds, .warmUps = 1}, {ours}, {peer});
}

std::string filled(std::string_view unit) {
  std::string text;
  text.reserve(kTextSize + unit.size());
  while (text.size() < kTextSize) text += unit;
  return text;
}

std::string asciiText() {
  return filled(
      "for f in *.txt; do\n"
      "\tcp -a \"$f\" /tmp/backup/ && echo \"done with $f\"\n"
      "done | sort -u > out.log   # what was copied, once each\n"
      "curl --fail --silent --show-error https://example.com/install.sh --output install.sh\n");
}

std::string mixedText() {
  return filled(
      "Latin text with caf\u00E9 and na\u00EFve words, \u043F\u0440\u0438\u0432\u0435\u0442 "
      "\u043C\u0438\u0440 \u0438 \u0435\u0449\u0451\n"
      "\u4E2D\u6587\u5B57\u7B26\u6D4B\u8BD5\uFF0C\u8FD9\u662F\u4E00\u4E2A\u6BB5\u843D\u3002 plain line x = y "
      "+ 1;\n"
      "\u042D\u0442\u0430 \u0441\u0442\u0440\u043E\u043A\u0430 \u0442\u043E\u043B\u044C\u043A\u043E "
      "\u043D\u0430 "
      "\u043A\u0438\u0440\u0438\u043B\u043B\u0438\u0446\u0435\n"
      "\u65E5\u672C\u8A9E\u306E\u30C6\u30AD\u30B9\u30C8\u3068 ascii \u3092\u6DF7\u305C\u305F\u884C\n");
}

std::vector<Comparison> benchPasteGuard() {
  ::setenv("LC_ALL", "C.UTF-8", 1);
  const TemporaryFolder folder;
  const auto file = [&folder](const std::string& name, const std::string& text) {
    std::ofstream(folder.path() + "/" + name, std::ios::binary) << text;
    return folder.path() + "/" + name;
  };
  const auto checked = [](const std::string& text, bool clean) {
    return [&text, clean] {
      const PasteGuard::Report report = PasteGuard::check(text);
      require((report.findings.size() == 1) == clean, "check found something else");
    };
  };

  const std::string ascii = asciiText();
  std::string copy(ascii.size(), '\0');
  volatile char seen = 0;
  const Work copying = [&] {
    std::memcpy(copy.data(), ascii.data(), ascii.size());
    seen = copy[ascii.size() / 2];
  };
  const std::string asciiFile = file("ascii", ascii);
  const Work grep = [&] { runProgram("/usr/bin/grep", {"-cP", kClasses, asciiFile}, kNothingFound); };

  const std::string mixed = mixedText();
  const std::string mixedFile = file("mixed", mixed);
  const Work rg = [&] { runProgram("/usr/bin/rg", {"--count-matches", kClasses, mixedFile}, kNothingFound); };

  return {compare("paste guard, 64 MiB of ASCII / memcpy", checked(ascii, true), copying, 2),
          compare("paste guard, 64 MiB of ASCII / grep -cP", checked(ascii, true), grep, 1.0 / 5),
          compare("paste guard, 64 MiB of Latin, Cyrillic, CJK / rg --count-matches", checked(mixed, false),
                  rg, 1.0 / 3)};
}

/// One schedule and a moment to ask it about.
struct Question {
  bool weekly;
  int weekday;
  int hour;
  int minute;
  double after;
};

std::vector<Question> questions() {
  constexpr std::size_t kCount = 10000;
  std::vector<Question> all;
  for (std::size_t i = 0; i < kCount; ++i) {
    all.push_back({i % 2 == 0, static_cast<int>(i % 7) + 1, static_cast<int>(i % 24),
                   static_cast<int>(i * 7 % 60), 1.7e9 + static_cast<double>(i) * 7919});
  }
  return all;
}

double nextByICU(icu::GregorianCalendar& calendar, const Question& question) {
  UErrorCode status = U_ZERO_ERROR;
  calendar.setTime(question.after * 1000, status);
  const UCalendarDateFields add = question.weekly ? UCAL_WEEK_OF_YEAR : UCAL_DATE;
  if (question.weekly) {
    const int year = calendar.get(UCAL_YEAR_WOY, status);
    const int week = calendar.get(UCAL_WEEK_OF_YEAR, status);
    calendar.clear();
    calendar.set(UCAL_YEAR_WOY, year);
    calendar.set(UCAL_WEEK_OF_YEAR, week);
    calendar.set(UCAL_DAY_OF_WEEK, question.weekday);
  } else {
    const int year = calendar.get(UCAL_YEAR, status);
    const int month = calendar.get(UCAL_MONTH, status);
    const int day = calendar.get(UCAL_DATE, status);
    calendar.clear();
    calendar.set(year, month, day);
  }
  calendar.set(UCAL_HOUR_OF_DAY, question.hour);
  calendar.set(UCAL_MINUTE, question.minute);
  if (calendar.getTime(status) <= question.after * 1000) calendar.add(add, 1, status);
  const double next = calendar.getTime(status) / 1000;
  require(U_SUCCESS(status) != 0, "ICU failed");
  return next;
}

Comparison benchNextRun() {
  constexpr const char* kZone = "Europe/Berlin";
  const std::vector<Question> all = questions();
  const Calendar calendar(TimeZone::named(kZone).value());
  UErrorCode status = U_ZERO_ERROR;
  icu::GregorianCalendar theirs(icu::TimeZone::createTimeZone(kZone), status);
  theirs.setFirstDayOfWeek(UCAL_SUNDAY);
  theirs.setMinimalDaysInFirstWeek(1);
  theirs.setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);

  std::vector<double> ourAnswers(all.size());
  std::vector<double> theirAnswers(all.size());
  const Work ours = [&] {
    for (std::size_t i = 0; i < all.size(); ++i) {
      const Question& question = all[i];
      const Schedule schedule = question.weekly
                                    ? Schedule::weekly(question.weekday, question.hour, question.minute)
                                    : Schedule::daily(question.hour, question.minute);
      ourAnswers[i] = schedule.nextRun(Date::fromUnixSeconds(question.after), calendar).unixSeconds();
    }
  };
  const Work peer = [&] {
    for (std::size_t i = 0; i < all.size(); ++i) theirAnswers[i] = nextByICU(theirs, all[i]);
  };
  Comparison row = compare("next run, 10,000 schedules / ICU's calendar", ours, peer, 1.5);
  require(ourAnswers == theirAnswers, "the calendars disagree");
  return row;
}

Comparison benchDue() {
  constexpr std::size_t kTasks = 10000;
  constexpr double kThousands = kTasks / 1000.0;
  constexpr double kMicroseconds = 1000;
  constexpr Date kNow{800000000};
  constexpr double kGrace = 300;
  ScheduleStore store(std::nullopt, Calendar(TimeZone::utc()));
  std::vector<ScheduledTask> plain;
  for (std::size_t i = 0; i < kTasks; ++i) {
    const bool due = i % 100 == 0;
    plain.emplace_back(Uuid::random(), "A task with a title", "tool", "action",
                       std::map<std::string, std::string>{{"path", "/Users/ann/Library/Caches"}},
                       Schedule::daily(9, 0), true, false, std::nullopt,
                       Date{kNow.secondsSinceReference + (due ? 0 : 60)}, std::nullopt);
    store.upsert(plain.back());
  }
  const Work ours = [&] {
    require(store.due(kNow, kGrace).size() == kTasks / 100, "due found something else");
  };
  const Work peer = [&] {
    const std::vector<ScheduledTask> copied = plain;
    std::vector<ScheduledTask> due;
    for (const ScheduledTask& task : copied) {
      if (task.isEnabled && task.nextRun && *task.nextRun <= kNow) due.push_back(task);
    }
    require(due.size() == kTasks / 100, "the walk found something else");
  };
  Comparison row =
      compare("due among 10,000 tasks, for each thousand / a walk over a copy of the list", ours, peer, 1);
  row.unit = "µs";
  row.ours *= kMicroseconds / kThousands;
  row.peer *= kMicroseconds / kThousands;
  return row;
}

}  // namespace

std::vector<Comparison> benchCore() {
  std::vector<Comparison> rows = benchPasteGuard();
  rows.push_back(benchNextRun());
  rows.push_back(benchDue());
  return rows;
}

}  // namespace molvane::bench
