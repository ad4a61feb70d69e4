#include "Base/JsonNumber.hpp"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string>

namespace molvane {

namespace {

/// More digits than any number of 64 bits has.
constexpr std::int64_t kMostDigits = 20;

std::int64_t exponentOf(std::string_view text) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  std::int64_t exponent = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), exponent);
  // Out of range either way is far beyond what any digits in a document can make up for.
  constexpr std::int64_t kFar = std::numeric_limits<std::int64_t>::max() / 4;
  if (error == std::errc::result_out_of_range) return text.front() == '-' ? -kFar : kFar;
  return std::clamp(exponent, -kFar, kFar);
}

}  // namespace

std::optional<WholeNumber> wholeNumberOf(std::string_view literal) {
  const bool negative = literal.front() == '-';
  if (negative) literal.remove_prefix(1);
  std::int64_t exponent = 0;
  if (const std::size_t mark = literal.find_first_of("eE"); mark != std::string_view::npos) {
    exponent = exponentOf(literal.substr(mark + 1));
    literal = literal.substr(0, mark);
  }
  // The number is `digits` times ten to the power of `exponent`, without zeros at either end of the digits.
  std::string digits(literal);
  if (const std::size_t point = digits.find('.'); point != std::string::npos) {
    exponent -= static_cast<std::int64_t>(digits.size() - point - 1);
    digits.erase(point, 1);
  }
  digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
  const std::size_t significant = digits.find_last_not_of('0') + 1;
  exponent += static_cast<std::int64_t>(digits.size() - significant);
  digits.resize(significant);
  if (digits.empty()) return WholeNumber(std::int64_t{0});
  if (exponent < 0 || exponent + static_cast<std::int64_t>(digits.size()) > kMostDigits) return std::nullopt;
  digits.append(static_cast<std::size_t>(exponent), '0');

  std::uint64_t magnitude = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), magnitude);
  if (error != std::errc()) return std::nullopt;
  constexpr auto kGreatestSigned = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (negative) {
    if (magnitude > kGreatestSigned + 1) return std::nullopt;
    return WholeNumber(static_cast<std::int64_t>(~magnitude + 1));
  }
  if (magnitude > kGreatestSigned) return WholeNumber(magnitude);
  return WholeNumber(static_cast<std::int64_t>(magnitude));
}

}  // namespace molvane
