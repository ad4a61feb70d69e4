#include "Core/Scheduling/ScheduleCoding.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "Base/JsonCoding.hpp"
#include "Core/Scheduling/ScheduledTask.hpp"

namespace molvane {

namespace {

constexpr std::string_view kDaily = "daily";
constexpr std::string_view kWeekly = "weekly";
constexpr std::string_view kEveryHours = "everyHours";

// Types of this file alone, so that what the templates make of them cannot clash with another file's.

struct Identifier {
  Uuid id;
};

void fromJson(const JsonValue& json, Identifier& identifier) {
  std::string text;
  molvane::fromJson(json, text);
  const std::optional<Uuid> id = Uuid::parse(text);
  if (!id) {
    throw DecodingError(DecodingFailure::dataCorrupted,
                        {{}, "Attempted to decode UUID from invalid UUID string."});
  }
  identifier.id = *id;
}

struct Payload {
  std::map<std::string, std::string> values;
};

void fromJson(const JsonValue& json, Payload& payload) {
  const JsonObjectReader checked(json);
  // Not asked for by their keys, each of which would be searched for from the first.
  for (const JsonValue::Member& member : *json.as<JsonValue::Object>()) {
    const auto [entry, isNew] = payload.values.try_emplace(member.key);
    if (!isNew) continue;
    try {
      molvane::fromJson(member.value, entry->second);
    } catch (const DecodingError& error) {
      json::rethrowBelow(member.key, error);
    }
  }
}

JsonValue toJson(const Payload& payload) {
  JsonObjectWriter object;
  for (const auto& [key, value] : payload.values) object.add(key, value);
  return object.take();
}

}  // namespace

static void fromJson(const JsonValue& json, Schedule::Daily& daily) {
  const JsonObjectReader object(json);
  object.read("hour", daily.hour);
  object.read("minute", daily.minute);
}

static JsonValue toJson(const Schedule::Daily& daily) {
  return JsonObjectWriter().add("hour", daily.hour).add("minute", daily.minute).take();
}

static void fromJson(const JsonValue& json, Schedule::Weekly& weekly) {
  const JsonObjectReader object(json);
  object.read("weekday", weekly.weekday);
  object.read("hour", weekly.hour);
  object.read("minute", weekly.minute);
}

static JsonValue toJson(const Schedule::Weekly& weekly) {
  return JsonObjectWriter()
      .add("weekday", weekly.weekday)
      .add("hour", weekly.hour)
      .add("minute", weekly.minute)
      .take();
}

static void fromJson(const JsonValue& json, Schedule::EveryHours& every) {
  JsonObjectReader(json).read("_0", every.count);
}

static JsonValue toJson(const Schedule::EveryHours& every) {
  return JsonObjectWriter().add("_0", every.count).take();
}

static void fromJson(const JsonValue& json, RunOutcome& outcome) { fromJson(json, outcome.rawValue); }

static JsonValue toJson(const RunOutcome& outcome) { return toJson(outcome.rawValue); }

void fromJson(const JsonValue& json, Schedule& schedule) {
  const JsonObjectReader object(json);
  const std::string_view which = object.onlyCase(std::array{kDaily, kWeekly, kEveryHours});
  const auto readCase = [&](auto rule) {
    object.read(which, rule);
    schedule = Schedule(rule);
  };
  if (which == kDaily) {
    readCase(Schedule::Daily());
  } else if (which == kWeekly) {
    readCase(Schedule::Weekly());
  } else {
    readCase(Schedule::EveryHours());
  }
}

JsonValue toJson(const Schedule& schedule) {
  struct Name {
    std::string_view operator()(const Schedule::Daily&) const { return kDaily; }
    std::string_view operator()(const Schedule::Weekly&) const { return kWeekly; }
    std::string_view operator()(const Schedule::EveryHours&) const { return kEveryHours; }
  };
  const std::string name(std::visit(Name(), schedule.rule()));
  return std::visit([&](const auto& rule) { return JsonObjectWriter().add(name, rule).take(); },
                    schedule.rule());
}

static bool holdsUnknown(const JsonValue& json, const JsonValue& known) {
  const auto* const members = json.as<JsonValue::Object>();
  if (members == nullptr) return false;
  return std::any_of(members->begin(), members->end(), [&known](const JsonValue::Member& member) {
    const JsonValue* const counterpart = known.find(member.key);
    return counterpart == nullptr || holdsUnknown(member.value, *counterpart);
  });
}

bool holdsUnknownSchedule(const JsonValue& json) {
  static const JsonValue known = JsonObjectWriter()
                                     .add(std::string(kDaily), Schedule::Daily())
                                     .add(std::string(kWeekly), Schedule::Weekly())
                                     .add(std::string(kEveryHours), Schedule::EveryHours())
                                     .take();
  return holdsUnknown(json, known);
}

void fromJson(const JsonValue& json, ScheduledTask& task) {
  const JsonObjectReader object(json);
  Identifier identifier;
  object.read("id", identifier);
  task.id = identifier.id;
  object.read("title", task.title);
  object.read("toolID", task.toolID);
  object.read("actionID", task.actionID);
  Payload payload;
  object.read("payload", payload);
  task.payload = std::move(payload.values);
  object.read("schedule", task.schedule);
  object.read("isEnabled", task.isEnabled);
  object.read("runIfMissed", task.runIfMissed);
  object.read("lastRun", task.lastRun);
  object.read("lastOutcome", task.lastOutcome);
  object.read("nextRun", task.nextRun);
  object.read("company", task.company);
}

JsonValue toJson(const ScheduledTask& task) {
  return JsonObjectWriter()
      .add("id", task.id.text())
      .add("title", task.title)
      .add("toolID", task.toolID)
      .add("actionID", task.actionID)
      .add("payload", Payload{task.payload})
      .add("schedule", task.schedule)
      .add("isEnabled", task.isEnabled)
      .add("runIfMissed", task.runIfMissed)
      .add("lastRun", task.lastRun)
      .add("lastOutcome", task.lastOutcome)
      .add("nextRun", task.nextRun)
      .add("company", task.company)
      .take();
}

}  // namespace molvane
