#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "Core/PasteGuard.hpp"
#include "Core/Scheduling/ScheduleFile.hpp"
#include "molvanectl/Commands.hpp"
#include "molvanectl/FileWords.hpp"
#include "molvanectl/OptionSet.hpp"
#include "molvanectl/Session.hpp"
#include "molvanectl/TextLayout.hpp"

namespace molvane::ctl {
namespace {

constexpr std::size_t kTitleColumn = 28;

TimeZone zoneNamed(const std::string& name) {
  if (name.empty()) return TimeZone::current();
  std::optional<TimeZone> zone = TimeZone::named(name);
  if (!zone) throw UsageError("no time zone is called '" + name + "'");
  return *zone;
}

Date momentOf(const std::string& text) {
  if (text.empty()) return Date::now();
  const std::optional<Date> date = dateFromIso8601(text);
  if (!date) throw UsageError("'" + text + "' is no time such as 2026-11-22T09:00:00+01:00");
  return *date;
}

double secondsOf(const std::string& text) {
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || !std::isfinite(seconds) || seconds < 0) {
    throw UsageError("'" + text + "' is no number of seconds");
  }
  return seconds;
}

/// "2026-11-22 09:00:00 +01:00", as the clocks of the zone show it.
std::string localText(Date date, const Calendar& calendar) {
  const Calendar::Day day = calendar.day(date);
  if (day.year < 1 || day.year > 9999) return "out of reach";
  const Calendar::Time time = calendar.time(date);
  const int offset = calendar.timeZone().secondsFromGMT(date) / 60;
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} {}{:02}:{:02}", day.year, day.month, day.day,
                     time.hour, time.minute, time.second, offset < 0 ? '-' : '+', std::abs(offset) / 60,
                     std::abs(offset) % 60);
}

Record isoText(const std::optional<Date>& date) {
  if (!date) return nullptr;
  try {
    return iso8601Text(*date);
  } catch (const std::out_of_range&) {
    return nullptr;
  }
}

Record asRecord(const ScheduledTask& task) {
  return {{"id", task.id.text()},
          {"title", task.title},
          {"toolID", task.toolID},
          {"actionID", task.actionID},
          {"schedule", task.schedule.description()},
          {"isEnabled", task.isEnabled},
          {"nextRun", isoText(task.nextRun)},
          {"lastRun", isoText(task.lastRun)}};
}

std::string asEntry(const ScheduledTask& task, const Calendar& calendar, Date now) {
  std::string detail = task.schedule.description() + "; " + task.toolID + " " + task.actionID;
  if (!task.isEnabled) detail += "; disabled";
  if (task.hasCome(now)) detail += "; its time has come";
  return twoColumns(task.nextRun ? localText(*task.nextRun, calendar) : "never",
                    PasteGuard::oneLine(task.title), kTitleColumn) +
         wrapped(PasteGuard::oneLine(detail), kTitleColumn);
}

/// What both commands have: the file, the zone and the time that is asked about.
class ScheduleCommand : public Command {
 public:
  void declare(OptionSet& options) override {
    options.argument("PATH", path_, "The file in which the tasks are kept.");
    options.value("--at", "TIME", at_,
                  "The time to ask about, as 2026-11-22T09:00:00+01:00; now if not given.");
    options.value("--zone", "ZONE", zone_, "The time zone to show times in, as Europe/Berlin.");
  }

 protected:
  [[nodiscard]] std::vector<ScheduledTask> tasks() const {
    std::optional<std::vector<ScheduledTask>> read;
    try {
      read = readScheduleFile(path_);
    } catch (const BrokenScheduleFile& broken) {
      throw std::runtime_error(path_ + " is no file of tasks: " + broken.what());
    } catch (const NewerScheduleFile& newer) {
      throw std::runtime_error(path_ + ": " + newer.what());
    } catch (const std::system_error& error) {
      throw std::runtime_error(whyUnreadable(path_, error.code()));
    }
    if (!read) throw std::runtime_error(noFile(path_));
    return *read;
  }

  [[nodiscard]] Date moment() const { return momentOf(at_); }
  [[nodiscard]] Calendar calendar() const { return Calendar(zoneNamed(zone_)); }

  static void print(Output& output, const std::vector<ScheduledTask>& tasks, const Calendar& calendar,
                    Date now) {
    for (const ScheduledTask& task : tasks) {
      if (output.json()) {
        output.record(asRecord(task));
      } else {
        output.text(asEntry(task, calendar, now));
      }
    }
  }

 private:
  std::string path_;
  std::string at_;
  std::string zone_;
};

class ScheduleNextCommand : public ScheduleCommand {
 public:
  CommandText text() const override {
    return {"next", "List the tasks in the order of their next runs",
            "Lists the scheduled tasks in a file: when each runs next, its title, its schedule and its "
            "tool's action. "
            "Those without a next run come last. Asks nothing of the helper and changes nothing. With "
            "--json: one "
            "object a task with the keys id, title, toolID, actionID, schedule, isEnabled, nextRun and "
            "lastRun, the "
            "times in UTC or null.",
            "molvanectl schedule next --zone Europe/Berlin tasks.jsonl"};
  }

  ExitStatus run(Session& session) override {
    const Date now = moment();
    const Calendar shown = calendar();
    std::vector<ScheduledTask> all = tasks();
    std::stable_sort(all.begin(), all.end(), [](const ScheduledTask& a, const ScheduledTask& b) {
      if (!a.nextRun || !b.nextRun) return a.nextRun.has_value() && !b.nextRun;
      return *a.nextRun < *b.nextRun;
    });
    print(session.output(), all, shown, now);
    return ExitStatus::done;
  }
};

class ScheduleDueCommand : public ScheduleCommand {
 public:
  CommandText text() const override {
    return {"due", "List the tasks that are due",
            "Lists the scheduled tasks in a file that are to run now: enabled, their time has come, and late "
            "by no "
            "more than the grace unless they are to run however late. Nothing runs and nothing changes. With "
            "--json: "
            "as for schedule next.",
            "molvanectl schedule due --grace 600 tasks.jsonl"};
  }

  void declare(OptionSet& options) override {
    ScheduleCommand::declare(options);
    options.value("--grace", "SECONDS", grace_, "How late a task may be; 300 if not given.");
  }

  ExitStatus run(Session& session) override {
    const double grace = secondsOf(grace_);
    const Date now = moment();
    const Calendar shown = calendar();
    std::vector<ScheduledTask> all = tasks();
    all.erase(std::remove_if(all.begin(), all.end(),
                             [&](const ScheduledTask& task) { return !task.isDue(now, grace); }),
              all.end());
    print(session.output(), all, shown, now);
    return ExitStatus::done;
  }

 private:
  std::string grace_ = "300";
};

}  // namespace

CommandGroup scheduleCommands() {
  return groupOf<ScheduleNextCommand, ScheduleDueCommand>(
      {"schedule", "Look into a file of scheduled tasks",
       "The app's scheduled tasks, as they stand in the file in which it keeps them.",
       "molvanectl schedule next tasks.jsonl"});
}

}  // namespace molvane::ctl
