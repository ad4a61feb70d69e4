#include "molvanectl/TerminalText.hpp"

#include <charconv>
#include <cstdint>
#include <iterator>

#include "Base/Utf8.hpp"

namespace molvane::ctl {
namespace {

bool isControl(char32_t scalar) { return scalar < 0x20 || (scalar >= 0x7F && scalar <= 0x9F); }

bool isDisguise(char32_t scalar) {
  return scalar == 0x00AD || scalar == 0x061C ||    // soft hyphen, Arabic letter mark
         (scalar >= 0x200B && scalar <= 0x200F) ||  // zero width, left-to-right and right-to-left marks
         (scalar >= 0x2028 && scalar <= 0x202E) ||  // line and paragraph separators, embeddings, overrides
         (scalar >= 0x2060 && scalar <= 0x206F) ||  // word joiner, invisible operators, isolates
         scalar == 0xFEFF ||                        // byte order mark
         (scalar >= 0xFFF9 && scalar <= 0xFFFB) ||  // annotation marks
         (scalar >= 0xE0000 && scalar <= 0xE007F);  // tags
}

std::string hex(std::uint32_t value) {
  char digits[8];
  const std::to_chars_result result = std::to_chars(std::begin(digits), std::end(digits), value, 16);
  return {std::begin(digits), result.ptr};
}

// Two digits.
std::string hexByte(std::uint32_t value) { return (value < 0x10 ? "\\x0" : "\\x") + hex(value); }

// Whether the line ends here, or a tab stands here: control characters that a line of text is made with.
bool beginsLayout(std::string_view text) {
  return text.front() == '\n' || text.front() == '\t' || text.substr(0, 2) == "\r\n";
}

std::string visible(const LeadingScalar& scalar, std::string_view bytes) {
  std::string shown;
  if (!scalar.valid) {
    for (const unsigned char byte : bytes) shown += hexByte(byte);
  } else if (isControl(scalar.value)) {
    shown = hexByte(scalar.value);
  } else if (isDisguise(scalar.value)) {
    shown = "\\u{" + hex(scalar.value) + "}";
  } else {
    shown = bytes;
  }
  return shown;
}

}  // namespace

std::string visibleText(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  while (!text.empty()) {
    const LeadingScalar scalar = leadingScalar(text);
    const std::string_view bytes = text.substr(0, scalar.length);
    if (beginsLayout(text)) {
      shown += bytes;
    } else {
      shown += visible(scalar, bytes);
    }
    text.remove_prefix(scalar.length);
  }
  return shown;
}

}  // namespace molvane::ctl
