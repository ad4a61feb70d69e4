#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Base/Date.hpp"

namespace molvane {

class TimeZoneRules;

/// A time zone of the system's time-zone data. Cheap to copy; any thread may use one.
///
/// The data of a zone are read when it is first asked for and kept for the life of the process, so an update
/// of the system's data is seen by the next process.
class TimeZone {
 public:
  /// The zone of that name ("Europe/Berlin", "GMT"); nothing when the system knows none. Throws
  /// std::runtime_error when its data cannot be used.
  [[nodiscard]] static std::optional<TimeZone> named(std::string_view identifier);

  /// The zone that the person has chosen: by the variable TZ, as a name, a file or a rule, or else for the
  /// whole system. UTC when TZ says nothing that is known, or the system has chosen none. Looks anew at each
  /// call. Throws as named() does.
  [[nodiscard]] static TimeZone current();

  [[nodiscard]] static TimeZone utc();

  /// The name; for a zone that has none, its file or the rule that TZ gives.
  [[nodiscard]] const std::string& identifier() const noexcept { return *identifier_; }

  /// Seconds east of UTC at that moment. Moments further than 30,000 years from 1970 count as the last ones
  /// within.
  [[nodiscard]] std::int32_t secondsFromGMT(Date date) const noexcept;

  [[nodiscard]] const TimeZoneRules& rules() const noexcept { return *rules_; }

  friend bool operator==(const TimeZone& a, const TimeZone& b) noexcept {
    return a.identifier() == b.identifier();
  }

 private:
  TimeZone(std::string identifier, std::shared_ptr<const TimeZoneRules> rules);

  std::shared_ptr<const std::string> identifier_;
  std::shared_ptr<const TimeZoneRules> rules_;
};

}  // namespace molvane
