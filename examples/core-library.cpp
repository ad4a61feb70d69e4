// Shows what a pasted text hides, and when a task would run next. Arguments: the text, a file for the tasks.

#include <Core/PasteGuard.hpp>
#include <Core/Scheduling/ScheduleStore.hpp>
#include <iostream>

int main(int argc, char** argv) {
  using namespace molvane;
  if (argc != 3) return 2;
  const std::string text = argv[1];
  const PasteGuard::Report report = PasteGuard::check(text);
  for (const auto& [finding, count] : report.findings) {
    std::cout << PasteGuard::rawValue(finding) << ": " << count << '\n';
  }
  const bool ask = report.needsConfirmation(/*bracketed*/ false);
  std::cout << (ask ? "ask first: " : "harmless: ") << PasteGuard::revealed(text) << '\n';

  const Calendar calendar(TimeZone::named("Europe/Berlin").value(), /*firstWeekday*/ 2);
  const Schedule schedule = Schedule::weekly(/*weekday*/ 2, /*hour*/ 9, /*minute*/ 30);
  const Date next = schedule.nextRun(*dateFromIso8601("2026-11-22T12:00:00Z"), calendar);

  ScheduleStore store(argv[2], calendar);
  store.upsert({Uuid::random(), "Clean caches", "cleaner", "run", {}, schedule, true, false, {}, next, {}});
  for (const ScheduledTask& task : store.tasks()) {
    std::cout << task.title << ": " << task.schedule.description() << ", " << iso8601Text(next) << '\n';
  }
}
