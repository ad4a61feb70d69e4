#include "Base/Text.hpp"

#include <cstddef>

#include "Base/Utf8.hpp"

namespace molvane {

namespace {

template <typename Predicate>
std::string trimming(std::string_view text, Predicate dropped) {
  const Utf8Scalars scalars(text);
  auto scalar = scalars.begin();
  while (scalar != scalars.end() && dropped(*scalar)) ++scalar;
  const std::string_view rest = scalar.rest();

  std::size_t kept = 0;
  for (; scalar != scalars.end(); ++scalar) {
    if (!dropped(*scalar)) kept = rest.size() - scalar.rest().size() + scalar.bytes().size();
  }
  return std::string(rest.substr(0, kept));
}

}  // namespace

// The newline characters of Unicode's newline guidelines (section 5.8 of the standard).
bool isNewline(char32_t scalar) noexcept {
  return (scalar >= 0x0A && scalar <= 0x0D) || scalar == 0x85 || scalar == 0x2028 || scalar == 0x2029;
}

// Category Zs of the Unicode Character Database. The zero-width space is a format character there, but the
// platform's white-space set holds it.
bool isWhitespace(char32_t scalar) noexcept {
  return scalar == 0x09 || scalar == 0x20 || scalar == 0xA0 || scalar == 0x1680 ||
         (scalar >= 0x2000 && scalar <= 0x200B) || scalar == 0x202F || scalar == 0x205F || scalar == 0x3000;
}

bool containsNewline(std::string_view text) noexcept {
  for (const char32_t scalar : Utf8Scalars(text)) {
    if (isNewline(scalar)) return true;
  }
  return false;
}

std::vector<std::string> lines(std::string_view text) {
  std::vector<std::string> found;
  std::string line;
  const auto finishLine = [&] {
    if (!line.empty()) found.push_back(std::move(line));
    line.clear();
  };
  const Utf8Scalars scalars(text);
  for (auto scalar = scalars.begin(); scalar != scalars.end(); ++scalar) {
    if (isNewline(*scalar)) {
      finishLine();
    } else {
      line += scalar.bytes();
    }
  }
  finishLine();
  return found;
}

std::string trimmingWhitespace(std::string_view text) { return trimming(text, isWhitespace); }

std::string trimmingWhitespaceAndNewlines(std::string_view text) {
  return trimming(text, [](char32_t scalar) { return isWhitespace(scalar) || isNewline(scalar); });
}

}  // namespace molvane
