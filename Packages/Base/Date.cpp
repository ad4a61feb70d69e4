#include "Base/Date.hpp"

#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <stdexcept>

namespace molvane {

namespace {

using std::chrono::sys_days;

constexpr double kReferenceUnixSeconds = 978307200;
constexpr std::int64_t kSecondsPerDay = 86400;

/// Reads a text from left to right; once something is not as expected, everything after it fails too.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  int digits(std::size_t count) {
    const std::string_view field = rest_.substr(0, count);
    ok_ = ok_ && field.size() == count && field.find_first_not_of("0123456789") == std::string_view::npos;
    int value = 0;
    if (ok_) {
      std::from_chars(field.data(), field.data() + count, value);
      rest_.remove_prefix(count);
    }
    return value;
  }

  void literal(char expected) { ok_ = take(expected) && ok_; }

  bool take(char expected) {
    if (rest_.empty() || rest_.front() != expected) return false;
    rest_.remove_prefix(1);
    return true;
  }

  [[nodiscard]] bool ok() const { return ok_; }
  [[nodiscard]] bool atEnd() const { return ok_ && rest_.empty(); }

 private:
  std::string_view rest_;
  bool ok_ = true;
};

std::optional<std::int64_t> scanSecondOfDay(Scanner& scanner) {
  const int hour = scanner.digits(2);
  scanner.literal(':');
  const int minute = scanner.digits(2);
  scanner.literal(':');
  const int second = scanner.digits(2);
  if (!scanner.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  return hour * 3600 + minute * 60 + second;
}

std::optional<std::int64_t> scanOffset(Scanner& scanner) {
  if (scanner.take('Z')) return 0;
  const bool west = scanner.take('-');
  if (!west) scanner.literal('+');
  const int hours = scanner.digits(2);
  scanner.literal(':');
  const int minutes = scanner.digits(2);
  if (!scanner.ok() || hours > 23 || minutes > 59) return std::nullopt;
  const std::int64_t seconds = hours * 3600 + minutes * 60;
  return west ? -seconds : seconds;
}

}  // namespace

Date Date::now() {
  const std::chrono::duration<double> sinceUnixEpoch = std::chrono::system_clock::now().time_since_epoch();
  return fromUnixSeconds(sinceUnixEpoch.count());
}

Date Date::fromUnixSeconds(double seconds) noexcept { return {seconds - kReferenceUnixSeconds}; }

double Date::unixSeconds() const noexcept { return secondsSinceReference + kReferenceUnixSeconds; }

std::string iso8601Text(Date date) {
  constexpr double kFirst = -62135596800;  // 0001-01-01T00:00:00Z
  constexpr double kEnd = 253402300800;    // 10000-01-01T00:00:00Z
  const double unixSeconds = std::floor(date.unixSeconds());
  if (!(unixSeconds >= kFirst && unixSeconds < kEnd)) {
    throw std::out_of_range("the date lies outside the years 1 to 9999");
  }
  const std::chrono::sys_seconds moment(std::chrono::seconds(static_cast<std::int64_t>(unixSeconds)));
  const sys_days day = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day civil(day);
  const std::int64_t second = (moment - day).count();
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(civil.year()),
                     static_cast<unsigned>(civil.month()), static_cast<unsigned>(civil.day()), second / 3600,
                     second / 60 % 60, second % 60);
}

std::optional<Date> dateFromIso8601(std::string_view text) {
  Scanner scanner(text);
  const int year = scanner.digits(4);
  scanner.literal('-');
  const int month = scanner.digits(2);
  scanner.literal('-');
  const int day = scanner.digits(2);
  scanner.literal('T');
  const std::optional<std::int64_t> secondOfDay = scanSecondOfDay(scanner);
  const std::optional<std::int64_t> offset = scanOffset(scanner);
  const std::chrono::year_month_day date(std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day)));
  if (!scanner.atEnd() || !secondOfDay || !offset || !date.ok() || year == 0) return std::nullopt;
  const std::int64_t days = sys_days(date).time_since_epoch().count();
  return Date::fromUnixSeconds(static_cast<double>(days * kSecondsPerDay + *secondOfDay - *offset));
}

}  // namespace molvane
