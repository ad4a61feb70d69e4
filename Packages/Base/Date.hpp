#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace molvane {

/// A moment, in seconds since 2001-01-01T00:00:00Z without leap seconds.
struct Date {
  double secondsSinceReference = 0;

  /// The moment that the system clock shows.
  [[nodiscard]] static Date now();
  [[nodiscard]] static Date fromUnixSeconds(double seconds) noexcept;
  [[nodiscard]] double unixSeconds() const noexcept;

  // What the compiler makes of it looks to the checker like a null pointer written as 0.
  friend auto operator<=>(const Date&, const Date&) = default;  // NOLINT(modernize-use-nullptr)
};

/// "2026-11-22T10:00:00Z": UTC, the whole seconds that have begun. Throws std::out_of_range for a moment
/// outside the years 1 to 9999.
[[nodiscard]] std::string iso8601Text(Date date);

/// Reads "2026-11-22T10:00:00" followed by "Z" or by an offset from UTC such as "+01:00". Nothing for any
/// other form, for fractions of a second and for a day or time that does not exist.
[[nodiscard]] std::optional<Date> dateFromIso8601(std::string_view text);

}  // namespace molvane
