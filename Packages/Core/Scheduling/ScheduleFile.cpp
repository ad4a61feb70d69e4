#include "Core/Scheduling/ScheduleFile.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <set>
#include <system_error>
#include <utility>

#include "Base/JsonCoding.hpp"
#include "Core/Scheduling/KeptTask.hpp"
#include "Core/Scheduling/ScheduleCoding.hpp"

namespace molvane {

namespace {

constexpr std::int64_t kVersion = 1;
constexpr const char* kCountKey = "scheduledTasks";
constexpr const char* kVersionKey = "version";
constexpr const char* kCompleteKey = "complete";
constexpr const char* kTooLarge = "it is too large";

/// A task's members, in the order in which they are written.
constexpr std::array<std::string_view, 12> kMembers = {"id",      "title",       "toolID",    "actionID",
                                                       "payload", "schedule",    "isEnabled", "runIfMissed",
                                                       "lastRun", "lastOutcome", "nextRun",   "company"};

/// Takes line after line off the head of the bytes and knows the number of the last one.
class Lines {
 public:
  explicit Lines(std::string_view bytes) : rest_(bytes) {}

  /// What `decode` makes of the next line.
  template <typename Decode>
  auto next(const Decode& decode) {
    ++number_;
    const std::size_t length = rest_.find('\n');
    if (length == std::string_view::npos) refuse("is missing or cut off");
    const std::string_view line = rest_.substr(0, length);
    rest_.remove_prefix(length + 1);
    try {
      return decode(parseJson(line));
    } catch (const DecodingError& error) {
      refuse(error.errorDescription());
    }
  }

  [[nodiscard]] bool atEnd() const { return rest_.empty(); }

  [[noreturn]] void refuse(const std::string& why) const {
    throw BrokenScheduleFile("line " + std::to_string(number_) + ": " + why);
  }

  [[noreturn]] void refuseAsNewer(const std::string& what) const {
    throw NewerScheduleFile("A newer version wrote this file of tasks (line " + std::to_string(number_) +
                            ": " + what + "), so it is left as it is.");
  }

 private:
  std::string_view rest_;
  std::size_t number_ = 0;
};

struct FirstLine {
  std::int64_t count = 0;
  std::int64_t version = kVersion;
  std::optional<bool> isComplete = true;
};

JsonValue toJson(const FirstLine& line) {
  return JsonObjectWriter()
      .add(kCountKey, line.count)
      .add(kVersionKey, line.version)
      .add(kCompleteKey, line.isComplete)
      .take();
}

FirstLine nextFirstLine(Lines& lines) {
  return lines.next([&lines](const JsonValue& json) {
    const JsonObjectReader object(json);
    FirstLine line;
    object.read(kVersionKey, line.version);
    const std::string version = "version " + std::to_string(line.version);
    // Before anything else: the rest may have changed with the version.
    if (line.version > kVersion) lines.refuseAsNewer(version);
    if (line.version < kVersion) lines.refuse(version + " is not known");
    object.read(kCountKey, line.count);
    object.read(kCompleteKey, line.isComplete);
    return line;
  });
}

/// A damaged key shows as a member that is missing and one that is not known. A file that is not complete
/// leaves out members with nothing in them, so there only the second tells.
void requireMembers(const JsonValue& json, bool hasUnknownMembers, bool isComplete) {
  for (const std::string_view key : kMembers) {
    const bool mustBeThere = isComplete || (hasUnknownMembers && key == "nextRun");
    if (mustBeThere && json.find(key) == nullptr) json::throwKeyNotFound(key);
  }
}

KeptTask nextTask(Lines& lines, bool isComplete) {
  return lines.next([&](const JsonValue& json) {
    const JsonValue* const schedule = json.find("schedule");
    if (schedule != nullptr && holdsUnknownSchedule(*schedule)) lines.refuseAsNewer("an unknown schedule");
    KeptTask kept;
    fromJson(json, kept.task);
    for (const JsonValue::Member& member : *json.as<JsonValue::Object>()) {
      if (std::find(kMembers.begin(), kMembers.end(), member.key) == kMembers.end())
        kept.unknownMembers.push_back(member);
    }
    requireMembers(json, !kept.unknownMembers.empty(), isComplete);
    return kept;
  });
}

JsonValue toJson(const KeptTask& kept) {
  const JsonValue task = toJson(kept.task);
  JsonValue::Object members;
  for (const std::string_view key : kMembers) {
    const JsonValue* const value = task.find(key);
    members.push_back({std::string(key), value == nullptr ? JsonValue() : *value});
  }
  members.insert(members.end(), kept.unknownMembers.begin(), kept.unknownMembers.end());
  return JsonValue(std::move(members));
}

void appendLine(std::string& bytes, const JsonValue& json) {
  const std::string line = jsonText(json);
  if (line.size() > kMaximumJsonSize || bytes.size() + line.size() >= kMaximumScheduleFileSize) {
    throw std::length_error("the scheduled tasks are too large to be kept in a file");
  }
  bytes += line;
  bytes += '\n';
}

}  // namespace

std::vector<KeptTask> decodedScheduleFile(std::string_view bytes) {
  if (bytes.size() > kMaximumScheduleFileSize) throw BrokenScheduleFile(kTooLarge);
  Lines lines(bytes);
  const FirstLine first = nextFirstLine(lines);

  std::vector<KeptTask> tasks;
  std::set<std::string> identifiers;
  while (!lines.atEnd()) {
    tasks.push_back(nextTask(lines, first.isComplete.value_or(false)));
    if (!identifiers.insert(tasks.back().task.id.text()).second)
      lines.refuse("the identifier is another task's too");
  }
  if (static_cast<std::int64_t>(tasks.size()) != first.count) {
    throw BrokenScheduleFile("it holds " + std::to_string(tasks.size()) + " tasks and says " +
                             std::to_string(first.count));
  }
  return tasks;
}

std::string encodedScheduleFile(const std::vector<std::shared_ptr<const KeptTask>>& tasks) {
  std::string bytes;
  FirstLine first;
  first.count = static_cast<std::int64_t>(tasks.size());
  appendLine(bytes, toJson(first));
  for (const std::shared_ptr<const KeptTask>& kept : tasks) appendLine(bytes, toJson(*kept));
  return bytes;
}

std::optional<HeldTasks> readAndHoldTasks(const std::string& path) {
  std::optional<SmallFile> read;
  try {
    read = readAndHold(path, kMaximumScheduleFileSize);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::file_too_large) throw BrokenScheduleFile(kTooLarge);
    throw;
  }
  if (!read) return std::nullopt;
  return HeldTasks{decodedScheduleFile(read->bytes), std::move(read->file)};
}

std::optional<std::vector<ScheduledTask>> readScheduleFile(const std::string& path) {
  std::optional<HeldTasks> read = readAndHoldTasks(path);
  if (!read) return std::nullopt;
  std::vector<ScheduledTask> tasks;
  for (KeptTask& kept : read->tasks) tasks.push_back(std::move(kept.task));
  return tasks;
}

}  // namespace molvane
