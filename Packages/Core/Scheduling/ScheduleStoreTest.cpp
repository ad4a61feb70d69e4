#include "Core/Scheduling/ScheduleStore.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Core/Scheduling/ScheduleFile.hpp"
#include "Platform/SafeFile.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kHour = 3600;
constexpr double kDay = 24 * kHour;
constexpr double kGrace = 300;

/// Nine o'clock of some day, in UTC.
constexpr Date kNine{800000 * 1000 + 9 * kHour - 800000 * 1000 % 86400};

Date later(Date date, double seconds) { return {date.secondsSinceReference + seconds}; }

ScheduledTask task(const std::string& title, std::optional<Date> nextRun, bool runIfMissed = false) {
  return {Uuid::random(), title,       "tool",       "action", {{"key", "value"}}, Schedule::daily(9, 0),
          true,           runIfMissed, std::nullopt, nextRun,  std::nullopt};
}

std::vector<std::string> titles(const std::vector<ScheduledTask>& tasks) {
  std::vector<std::string> result;
  for (const ScheduledTask& each : tasks) result.push_back(each.title);
  return result;
}

/// As files were written when they left out members with nothing in them.
const std::string kFirstLineOfBefore = R"({"scheduledTasks":1,"version":1})"
                                       "\n";
const std::string kTaskOfBefore =
    R"({"id":"00000000-0000-0000-0000-000000000001","title":"t","toolID":"t","actionID":"a","payload":{},)"
    R"("schedule":{"daily":{"hour":9,"minute":0}},"isEnabled":true,"runIfMissed":false,"nextRun":1})"
    "\n";

class ScheduleStoreTest : public testing::Test {
 protected:
  [[nodiscard]] ScheduleStore open() const { return ScheduleStore(file, Calendar(TimeZone::utc())); }
  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator(folder.path())) result.push_back(entry.path().filename());
    std::sort(result.begin(), result.end());
    return result;
  }
  void write(const std::string& bytes) const { std::ofstream(file, std::ios::binary) << bytes; }
  [[nodiscard]] std::string bytesOf(const fs::path& path) const { return *readSmallFile(path, 1U << 20U); }

  TemporaryFolder folder;
  fs::path file = fs::path(folder.path()) / "tasks.jsonl";
  ScheduleStore store{std::nullopt, Calendar(TimeZone::utc())};
};

TEST_F(ScheduleStoreTest, DueAreEnabledTasksWhoseRunHasComeAndIsNotTooLate) {
  ScheduledTask disabled = task("disabled", kNine);
  disabled.isEnabled = false;
  for (const ScheduledTask& each :
       {task("at nine", kNine), disabled, task("never", std::nullopt),
        task("half past", later(kNine, kHour / 2)), task("however late", kNine, true)}) {
    store.upsert(each);
  }
  const auto due = [&](double seconds, double grace) {
    return titles(store.due(later(kNine, seconds), grace));
  };
  EXPECT_THAT(due(-1, kGrace), IsEmpty());
  EXPECT_THAT(due(0, 0), ElementsAre("at nine", "however late"));
  EXPECT_THAT(due(kGrace, kGrace), ElementsAre("at nine", "however late"));
  EXPECT_THAT(due(600, kGrace), ElementsAre("however late"));
  EXPECT_THAT(due(kHour / 2, kGrace), ElementsAre("half past", "however late"));
  EXPECT_THAT(due(kDay, std::numeric_limits<double>::infinity()),
              ElementsAre("at nine", "half past", "however late"));
  EXPECT_THAT(due(1, std::nan("")), ElementsAre("however late"));
}

TEST_F(ScheduleStoreTest, SkipMissedTakesWhatDueLeavesOutForBeingLate) {
  store.upsert(task("late", kNine));
  store.upsert(task("however late", kNine, true));
  store.upsert(task("in time", later(kNine, 500)));
  const Date now = later(kNine, 600);
  const std::vector<ScheduledTask> missed = store.skipMissed(now, kGrace);
  EXPECT_THAT(titles(missed), ElementsAre("late"));
  EXPECT_EQ(missed[0].nextRun, kNine);
  EXPECT_EQ(store.tasks()[0].nextRun, later(kNine, kDay));
  EXPECT_THAT(store.skipMissed(now, kGrace), IsEmpty());
  EXPECT_THAT(titles(store.due(now, kGrace)), ElementsAre("however late", "in time"));
  EXPECT_THAT(titles(store.due(later(kNine, kDay), kGrace)), ElementsAre("late", "however late"));
}

TEST_F(ScheduleStoreTest, ARunIsRecordedAndItsOccurrenceDoesNotComeAgain) {
  struct Case {
    std::optional<Date> planned;
    double ranAt;
    double next;
  };
  const std::vector<Case> cases = {
      {kNine, 0, kDay},                            // on time
      {kNine, 2 * kHour, kDay},                    // late
      {kNine, 3 * kDay + 1, 4 * kDay},             // after days of sleep: one run for all that passed
      {kNine, -30, kDay},                          // the clock was set back while it ran
      {kNine, -kHour, 0},                          // beside the schedule: the planned run stays
      {later(kNine, 5 * kDay), -kHour, 5 * kDay},  // nor is it drawn nearer
      {std::nullopt, -kHour, 0},                   // had none: the schedule begins
  };
  for (const Case& each : cases) {
    const ScheduledTask added = task("task", each.planned);
    store.upsert(added);
    EXPECT_TRUE(store.markRun(added.id, later(kNine, each.ranAt), RunOutcome{"success"}));
    const ScheduledTask after = store.tasks().back();
    EXPECT_EQ(after.lastRun, later(kNine, each.ranAt));
    EXPECT_EQ(after.lastOutcome, RunOutcome{"success"});
    EXPECT_EQ(after.nextRun, later(kNine, each.next)) << "ran at " << each.ranAt;
  }
  EXPECT_FALSE(store.markRun(Uuid::random(), kNine, std::nullopt));
}

TEST_F(ScheduleStoreTest, NoScheduleMakesATaskRunAgainAtOnceOrGetLost) {
  for (const Schedule& schedule :
       {Schedule::daily(-30, 0), Schedule::daily(0, -100000), Schedule::weekly(2, -500, 0),
        Schedule::daily(99, 0), Schedule::daily(std::numeric_limits<std::int64_t>::min(), 0),
        Schedule::everyHours(0)}) {
    ScheduledTask odd = task("odd", kNine);
    odd.schedule = schedule;
    store.upsert(odd);
    Date now = kNine;
    for (int i = 0; i < 20; ++i) {
      EXPECT_TRUE(store.markRun(odd.id, now, std::nullopt));
      const Date next = *store.tasks().back().nextRun;
      ASSERT_GT(next, now) << schedule.description();
      ASSERT_LT(next, later(now, 30 * kDay)) << schedule.description();
      now = next;
    }
  }
  const ScheduledTask plain = task("plain", kNine);
  store.upsert(plain);
  EXPECT_THROW(store.markRun(plain.id, {std::nan("")}, std::nullopt), std::out_of_range);
  EXPECT_THROW(store.skipMissed({1e300}, kGrace), std::out_of_range);
  EXPECT_EQ(store.tasks().back(), plain);
}

TEST_F(ScheduleStoreTest, TasksSurviveInTheFile) {
  const ScheduledTask first = task("first \n \"quoted\" \u00FC", later(kNine, 0.125));
  ScheduledTask second = task("second", std::nullopt);
  {
    ScheduleStore written = open();
    written.upsert(first);
    written.upsert(second);
    written.upsert(task("third", kNine));
    second.title = "changed";
    written.upsert(second);
    EXPECT_TRUE(written.remove(written.tasks().back().id));
    EXPECT_FALSE(written.remove(Uuid::random()));
  }
  EXPECT_THAT(open().tasks(), ElementsAre(first, second));
  EXPECT_EQ(open().brokenFile(), std::nullopt);
  EXPECT_THAT(names(), ElementsAre("tasks.jsonl"));
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));

  fs::create_symlink(file, folder.path() + "/link");
  ScheduleStore(folder.path() + "/link", Calendar(TimeZone::utc())).remove(first.id);
  EXPECT_THAT(open().tasks(), ElementsAre(second));
  fs::remove(file);
  ScheduleStore(folder.path() + "/link", Calendar(TimeZone::utc())).upsert(first);
  EXPECT_THAT(open().tasks(), ElementsAre(first));

  const fs::path before = fs::current_path();
  fs::remove(file);
  fs::current_path(folder.path());
  ScheduleStore relative(file.filename(), Calendar(TimeZone::utc()));
  fs::current_path(before);
  relative.upsert(second);
  EXPECT_THAT(open().tasks(), ElementsAre(second));
}

TEST_F(ScheduleStoreTest, ABrokenFileIsKeptAsideAndToldOf) {
  open().upsert(task("kept", kNine));
  const std::string good = bytesOf(file);
  const std::size_t lineEnd = good.find('\n') + 1;
  std::vector<std::string> broken = {
      "",
      "{}",
      "{}\n",
      good.substr(0, good.size() - 1),
      good.substr(0, lineEnd),
      good + good.substr(lineEnd),
      good + "\n",
      kFirstLineOfBefore + "{\"title\":1}\n",
      R"({"scheduledTasks":2,"version":1})"
      "\n" +
          good.substr(lineEnd) + good.substr(lineEnd),
      std::string(100, '\0'),
  };
  const auto withDamagedKey = [](std::string bytes, const std::string& key) {
    bytes.at(bytes.find("\"" + key + "\":") + 1) ^= 1;
    return bytes;
  };
  for (const char* const key :
       {"version", "scheduledTasks", "id", "title", "toolID", "actionID", "payload", "schedule", "isEnabled",
        "runIfMissed", "lastRun", "lastOutcome", "nextRun", "company"}) {
    broken.push_back(withDamagedKey(good, key));
  }
  broken.push_back(kFirstLineOfBefore + withDamagedKey(kTaskOfBefore, "nextRun"));
  std::size_t count = 0;
  for (const std::string& bytes : broken) {
    write(bytes);
    ScheduleStore opened = open();
    ASSERT_TRUE(opened.brokenFile()) << bytes;
    EXPECT_FALSE(opened.brokenFile()->problem.empty());
    EXPECT_THAT(opened.tasks(), IsEmpty());
    opened.upsert(task("new", kNine));
    EXPECT_EQ(bytesOf(opened.brokenFile()->keptAs), bytes);
    EXPECT_EQ(names().size(), ++count + 1);
    EXPECT_EQ(titles(open().tasks()), std::vector<std::string>{"new"});
  }
  write("");
  fs::resize_file(file, kMaximumScheduleFileSize + 1);
  EXPECT_TRUE(open().brokenFile());
  fs::create_directory(file);
  EXPECT_THROW((void)open(), std::system_error);
}

TEST_F(ScheduleStoreTest, ANewerFileIsLeftAsItIs) {
  const auto replaced = [](std::string text, const std::string& part, const std::string& by) {
    return text.replace(text.find(part), part.size(), by);
  };
  ScheduleStore running = open();
  running.upsert(task("kept", kNine));
  const std::string good = bytesOf(file);
  const std::string minute = R"("minute":0)";
  for (const std::string& bytes :
       {replaced(good, R"("version":1)", R"("version":12)"),
        replaced(good, "scheduledTasks\":1,\"version\":1", "version\":2"), replaced(good, "daily", "monthly"),
        replaced(good, minute, minute + R"(,"second":1)")}) {
    write(bytes);
    EXPECT_THROW((void)open(), NewerScheduleFile) << bytes;
    EXPECT_THROW((void)running.due(kNine, kGrace), NewerScheduleFile);
    EXPECT_THROW(running.upsert(task("new", kNine)), NewerScheduleFile);
    EXPECT_EQ(bytesOf(file), bytes);
    EXPECT_THAT(names(), ElementsAre("tasks.jsonl"));
  }
  write(good);
  EXPECT_THAT(titles(running.tasks()), ElementsAre("kept"));
}

TEST_F(ScheduleStoreTest, MembersThatAreNotKnownStay) {
  const std::string unknown = R"("color":{"name":"red"},"tags":[1,null])";
  write(kFirstLineOfBefore + "{" + unknown + "," + kTaskOfBefore.substr(1));
  ScheduleStore opened = open();
  ScheduledTask changed = opened.tasks().at(0);
  EXPECT_TRUE(opened.markRun(changed.id, kNine, std::nullopt));
  changed.title = "changed";
  open().upsert(changed);
  EXPECT_THAT(bytesOf(file), testing::EndsWith(R"("nextRun":1,"company":null,)" + unknown + "}\n"));
  EXPECT_THAT(opened.tasks(), ElementsAre(changed));
}

TEST_F(ScheduleStoreTest, WhatCannotBeWrittenDoesNotHappen) {
  ScheduleStore opened = open();
  const ScheduledTask kept = task("kept", kNine);
  opened.upsert(kept);
  fs::rename(folder.path(), folder.path() + "-away");
  EXPECT_THROW(opened.upsert(task("lost", kNine)), std::system_error);
  EXPECT_THROW(opened.remove(kept.id), std::system_error);
  EXPECT_THROW(opened.markRun(kept.id, kNine, std::nullopt), std::system_error);
  fs::rename(folder.path() + "-away", folder.path());
  EXPECT_THROW(opened.upsert(task("unwritable", Date{std::nan("")})), std::invalid_argument);
  EXPECT_THROW(opened.upsert(task(std::string(5U << 20U, 'x'), kNine)), std::length_error);
  EXPECT_THAT(opened.tasks(), ElementsAre(kept));
  EXPECT_THAT(open().tasks(), ElementsAre(kept));
}

/// Adds tasks for ever and writes a byte for each that was added.
[[noreturn]] void addTasksUntilKilled(const fs::path& file, int acknowledge) {
  try {
    ScheduleStore store(file, Calendar(TimeZone::utc()));
    while (true) {
      store.upsert(task("task", kNine));
      if (::write(acknowledge, "+", 1) != 1) ::_exit(1);
    }
  } catch (...) {
    ::_exit(1);
  }
}

TEST_F(ScheduleStoreTest, ProcessesKilledAtAnyMomentLoseNothingThatAnyOfThemAdded) {
  std::size_t added = 0;
  for (std::size_t round = 0; round < 15; ++round) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    std::array<pid_t, 2> children{};
    for (pid_t& child : children) {
      child = ::fork();
      ASSERT_GE(child, 0);
      if (child == 0) addTasksUntilKilled(file, ends[1]);
    }
    ::close(ends[1]);
    char byte = 0;
    for (std::size_t i = 0; i <= round; ++i) {
      ASSERT_EQ(::read(ends[0], &byte, 1), 1);
      ++added;
    }
    for (const pid_t child : children) ASSERT_EQ(::kill(child, SIGKILL), 0);
    while (::read(ends[0], &byte, 1) == 1) ++added;
    for (const pid_t child : children) {
      int status = 0;
      ASSERT_EQ(::waitpid(child, &status, 0), child);
      ASSERT_TRUE(WIFSIGNALED(status));  // it never failed
    }
    ::close(ends[0]);

    const ScheduleStore opened = open();
    ASSERT_EQ(opened.brokenFile(), std::nullopt) << opened.brokenFile()->problem;
    const std::size_t found = opened.tasks().size();
    ASSERT_GE(found, added);
    ASSERT_LE(found, added + children.size());  // written, and killed before it could say so
    added = found;
  }
  std::ofstream(folder.path() + "/.tasks.jsonl.abcdefghijkl") << "half";
  open().upsert(task("task", kNine));
  EXPECT_THAT(names(), ElementsAre("tasks.jsonl"));
}

// Stores of one process lock each other out of the file as those of several do.
TEST_F(ScheduleStoreTest, ThreadsAndStoresSeeWholeListsAndEachOthersChanges) {
  ScheduleStore first = open();
  ScheduleStore second = open();
  constexpr int kThreads = 4;
  constexpr int kTasks = 8;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back(
        [&writer = thread % 2 == 0 ? first : second, &reader = thread % 2 == 0 ? second : first] {
          for (int i = 0; i < kTasks; ++i) {
            const ScheduledTask added = task("task", kNine);
            writer.upsert(added);
            (void)writer.due(kNine, kGrace);
            const std::vector<ScheduledTask> seen = reader.tasks();
            EXPECT_NE(
                std::find_if(seen.begin(), seen.end(), [&](const auto& each) { return each.id == added.id; }),
                seen.end());
            EXPECT_TRUE(reader.markRun(added.id, kNine, std::nullopt));
            (void)writer.skipMissed(later(kNine, kDay), kGrace);
          }
        });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(first.tasks().size(), kThreads * kTasks);
  EXPECT_THAT(second.due(kNine, kGrace), IsEmpty());
  EXPECT_EQ(first.tasks(), second.tasks());
  EXPECT_THAT(names(), ElementsAre("tasks.jsonl"));
  fs::remove(file);
  EXPECT_THAT(first.tasks(), IsEmpty());
}

}  // namespace
}  // namespace molvane
