#include "Core/Scheduling/ScheduleFile.hpp"

#include <cstdint>
#include <set>
#include <system_error>

#include "Base/JsonCoding.hpp"
#include "Platform/SafeFile.hpp"

namespace molvane {

namespace {

constexpr std::int64_t kVersion = 1;
constexpr const char* kCountKey = "scheduledTasks";
constexpr const char* kVersionKey = "version";
constexpr const char* kTooLarge = "it is too large";

/// Takes line after line off the head of the bytes and knows the number of the last one.
class Lines {
 public:
  explicit Lines(std::string_view bytes) : rest_(bytes) {}

  template <typename T>
  T next() {
    ++number_;
    const std::size_t length = rest_.find('\n');
    if (length == std::string_view::npos) refuse("is missing or cut off");
    const std::string_view line = rest_.substr(0, length);
    rest_.remove_prefix(length + 1);
    try {
      return decodedJson<T>(line);
    } catch (const DecodingError& error) {
      refuse(error.errorDescription());
    }
  }

  [[nodiscard]] bool atEnd() const { return rest_.empty(); }

  [[noreturn]] void refuse(const std::string& why) const {
    throw BrokenScheduleFile("line " + std::to_string(number_) + ": " + why);
  }

 private:
  std::string_view rest_;
  std::size_t number_ = 0;
};

struct FirstLine {
  std::int64_t count = 0;
  std::int64_t version = 0;
};

void fromJson(const JsonValue& json, FirstLine& line) {
  const JsonObjectReader object(json);
  object.read(kVersionKey, line.version);
  object.read(kCountKey, line.count);
}

JsonValue toJson(const FirstLine& line) {
  return JsonObjectWriter().add(kCountKey, line.count).add(kVersionKey, line.version).take();
}

void appendLine(std::string& bytes, const std::string& line) {
  if (line.size() > kMaximumJsonSize || bytes.size() + line.size() >= kMaximumScheduleFileSize) {
    throw std::length_error("the scheduled tasks are too large to be kept in a file");
  }
  bytes += line;
  bytes += '\n';
}

}  // namespace

std::vector<ScheduledTask> decodedScheduleFile(std::string_view bytes) {
  if (bytes.size() > kMaximumScheduleFileSize) throw BrokenScheduleFile(kTooLarge);
  Lines lines(bytes);
  const auto first = lines.next<FirstLine>();
  if (first.version != kVersion) lines.refuse("version " + std::to_string(first.version) + " is not known");

  std::vector<ScheduledTask> tasks;
  std::set<std::string> identifiers;
  while (!lines.atEnd()) {
    tasks.push_back(lines.next<ScheduledTask>());
    if (!identifiers.insert(tasks.back().id.text()).second)
      lines.refuse("the identifier is another task's too");
  }
  if (static_cast<std::int64_t>(tasks.size()) != first.count) {
    throw BrokenScheduleFile("it holds " + std::to_string(tasks.size()) + " tasks and says " +
                             std::to_string(first.count));
  }
  return tasks;
}

std::string encodedScheduleFile(const std::vector<std::shared_ptr<const ScheduledTask>>& tasks) {
  std::string bytes;
  appendLine(bytes, encodedJson(FirstLine{static_cast<std::int64_t>(tasks.size()), kVersion}));
  for (const std::shared_ptr<const ScheduledTask>& task : tasks) appendLine(bytes, encodedJson(*task));
  return bytes;
}

std::optional<std::vector<ScheduledTask>> readScheduleFile(const std::string& path) {
  std::optional<std::string> bytes;
  try {
    bytes = readSmallFile(path, kMaximumScheduleFileSize);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::file_too_large) throw BrokenScheduleFile(kTooLarge);
    throw;
  }
  if (!bytes) return std::nullopt;
  return decodedScheduleFile(*bytes);
}

}  // namespace molvane
