#include "Core/Scheduling/TimeZone.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <system_error>
#include <utility>

#include "Base/Ascii.hpp"
#include "Base/Mutex.hpp"
#include "Core/Scheduling/CalendarRange.hpp"
#include "Core/Scheduling/TimeZoneRules.hpp"
#include "Platform/SafeFile.hpp"

namespace molvane {

namespace {

using Rules = std::shared_ptr<const TimeZoneRules>;

constexpr std::string_view kZoneFolder = "/usr/share/zoneinfo/";
constexpr std::string_view kSystemZone = "/etc/localtime";

/// The rules in that file; nullptr when it cannot be read or is larger than time-zone files are.
Rules rulesInFile(const std::string& path) {
  constexpr std::size_t kMostBytes = 1U << 20U;
  std::optional<std::string> bytes;
  try {
    bytes = readSmallFile(path, kMostBytes);
  } catch (const std::system_error&) {
    return nullptr;
  }
  if (!bytes) return nullptr;
  return std::make_shared<const TimeZoneRules>(TimeZoneRules::fromZoneInfo(*bytes));
}

/// Whether the name can be that of a zone and leads nowhere outside the zones' folder.
bool isZoneName(std::string_view name) {
  const auto isAllowed = [](char c) {
    return isAsciiLetter(c) || isAsciiDigit(c) || c == '/' || c == '_' || c == '+' || c == '-';
  };
  return !name.empty() && name.front() != '/' && std::all_of(name.begin(), name.end(), isAllowed);
}

/// Every zone that was asked for and exists.
class LoadedZones {
 public:
  Rules rules(std::string_view name) MOLVANE_EXCLUDES(mutex_) {
    if (Rules known = find(name)) return known;
    Rules read = rulesInFile(std::string(kZoneFolder).append(name));
    if (!read) return nullptr;
    const MutexLock lock(mutex_);
    return rules_.emplace(name, std::move(read)).first->second;
  }

 private:
  Rules find(std::string_view name) MOLVANE_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    const auto known = rules_.find(name);
    return known == rules_.end() ? nullptr : known->second;
  }

  Mutex mutex_;
  std::map<std::string, Rules, std::less<>> rules_ MOLVANE_GUARDED_BY(mutex_);
};

Rules loadedRules(std::string_view name) {
  static LoadedZones zones;
  return zones.rules(name);
}

/// The name that the system's zone file is a link to; empty when it is none.
std::string linkedZoneName() {
  std::error_code ignored;
  const std::string target =
      std::filesystem::read_symlink(std::filesystem::path(kSystemZone), ignored).string();
  constexpr std::string_view kFolderName = "/zoneinfo/";
  const std::size_t at = target.find(kFolderName);
  return at == std::string::npos ? std::string() : target.substr(at + kFolderName.size());
}

}  // namespace

TimeZone::TimeZone(std::string identifier, std::shared_ptr<const TimeZoneRules> rules)
    : identifier_(std::make_shared<const std::string>(std::move(identifier))), rules_(std::move(rules)) {}

std::optional<TimeZone> TimeZone::named(std::string_view identifier) {
  if (!isZoneName(identifier)) return std::nullopt;
  Rules rules = loadedRules(identifier);
  if (!rules) return std::nullopt;
  return TimeZone(std::string(identifier), std::move(rules));
}

TimeZone TimeZone::utc() {
  static const auto rules =
      std::make_shared<const TimeZoneRules>(0, std::vector<TimeZoneRules::Transition>{}, std::nullopt);
  return {"UTC", rules};
}

TimeZone TimeZone::current() {
  const char* const variable = std::getenv("TZ");  // NOLINT(concurrency-mt-unsafe): read only
  std::string_view choice = variable != nullptr ? variable : kSystemZone;
  if (choice.starts_with(':')) choice.remove_prefix(1);
  if (choice.starts_with(kZoneFolder)) choice.remove_prefix(kZoneFolder.size());
  if (std::optional<TimeZone> zone = named(choice == kSystemZone ? linkedZoneName() : choice)) return *zone;
  if (choice.starts_with('/')) {
    Rules rules = rulesInFile(std::string(choice));
    return rules ? TimeZone(std::string(choice), std::move(rules)) : utc();
  }
  const std::optional<PosixTimeZone> rule = PosixTimeZone::parse(choice);
  if (!rule) return utc();
  return {std::string(choice), std::make_shared<const TimeZoneRules>(
                                   rule->standardOffset(), std::vector<TimeZoneRules::Transition>{}, rule)};
}

std::int32_t TimeZone::secondsFromGMT(Date date) const noexcept {
  return rules_->offsetAt(wholeUnixSeconds(date));
}

}  // namespace molvane
