#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "Core/Scheduling/PosixTimeZone.hpp"

namespace molvane {

/// Which offset from UTC holds when, in one time zone. Wall seconds are what the zone's clocks show, counted
/// as if they showed UTC. Immutable; any thread may use one.
class TimeZoneRules {
 public:
  using Transition = PosixTimeZone::Transition;

  /// `firstOffset` holds before the first transition and `afterwards`, if given, from the last one on, for
  /// ever. Transitions must be in ascending order; none may lie after the year 9000 when `afterwards` has
  /// daylight-saving time. With it, the yearly transitions begin in 1800 at the earliest.
  TimeZoneRules(std::int32_t firstOffset, const std::vector<Transition>& transitions,
                const std::optional<PosixTimeZone>& afterwards);

  /// The rules in the bytes of a time-zone file (RFC 8536, version 2 or later). Throws std::runtime_error,
  /// which says what is wrong, for anything else and for files that count leap seconds.
  [[nodiscard]] static TimeZoneRules fromZoneInfo(std::string_view bytes);

  /// Seconds east of UTC at a moment given in seconds since 1970.
  [[nodiscard]] std::int32_t offsetAt(std::int64_t unixSeconds) const noexcept;

  /// The moment, in seconds since 1970, at which the clocks show `wallSeconds`: of two such moments the
  /// first; of none, the moment at which the clocks would have shown it had they not been put forward, so
  /// that they then show as much more as they were put forward.
  [[nodiscard]] std::int64_t momentOf(std::int64_t wallSeconds) const noexcept;

 private:
  void append(const Transition& transition);
  void appendYears(const PosixTimeZone& rule, std::int64_t from);
  [[nodiscard]] std::size_t spanOf(std::int64_t unixSeconds) const noexcept;
  /// By how much to go back from `seconds` to where the table stands for it.
  [[nodiscard]] std::int64_t beyondTable(std::int64_t seconds) const noexcept;

  std::vector<std::int64_t> at_;          ///< moments of the transitions
  std::vector<std::int32_t> offset_;      ///< offset_[i] holds before at_[i], the last after the last
  std::optional<std::int64_t> tableEnd_;  ///< from here on the 400 years before repeat
};

}  // namespace molvane
