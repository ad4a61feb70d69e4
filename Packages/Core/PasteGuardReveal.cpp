#include <unicode/uchar.h>

#include <algorithm>
#include <array>

#include "Base/Ascii.hpp"
#include "Base/Text.hpp"
#include "Base/Utf8.hpp"
#include "Core/PasteGuard.hpp"
#include "Core/PasteGuardKind.hpp"

namespace molvane::PasteGuard {

namespace {

constexpr char32_t kOpening = 0x27E8;
// What no property tells of: a blank braille pattern, a note without a head, blank hieroglyphs, a filler.
constexpr std::array<char32_t, 5> kBlankSymbols = {0x2800, 0x1D159, 0x13441, 0x13442, 0x16FE4};

bool holdsAsciiLetter(std::string_view text) { return std::any_of(text.begin(), text.end(), isAsciiLetter); }

/// The bytes of the line that begins at `at`, without its newline.
std::string_view lineAt(Utf8Scalars::Iterator at) {
  const std::string_view rest = at.rest();
  const Utf8Scalars::Iterator end = Utf8Scalars(rest).end();
  while (at != end && !isNewline(*at)) ++at;
  return rest.substr(0, rest.size() - at.rest().size());
}

/// One scalar of a text, as a walk along its lines meets it.
struct Place {
  char32_t scalar = 0;
  std::string_view bytes;
  std::optional<Finding> finding;  ///< newlines have none
  bool endsLine = false;
  std::size_t line = 1;
  std::size_t column = 1;
};

/// Calls `visit` for every scalar until it answers false.
template <typename Visit>
void walk(std::string_view text, const Visit& visit) {
  const Utf8Scalars scalars(text);
  Place place;
  bool mixed = false;
  bool atLineStart = true;
  for (auto at = scalars.begin(); at != scalars.end();) {
    if (atLineStart) mixed = holdsAsciiLetter(lineAt(at));
    place.scalar = *at;
    place.bytes = at.bytes();
    ++at;
    const bool newline = isNewline(place.scalar);
    place.endsLine = newline && !(place.scalar == '\r' && at != scalars.end() && *at == '\n');
    place.finding =
        newline || (isGreekOrCyrillic(place.scalar) && !mixed) ? std::nullopt : kind(place.scalar);
    if (!visit(place)) return;
    atLineStart = place.endsLine;
    place.column = place.endsLine ? 1 : place.column + 1;
    if (place.endsLine) ++place.line;
  }
}

/// Whether a terminal draws nothing for the scalar, or a blank that could be taken for a space.
bool isBlank(char32_t scalar) {
  if (scalar == ' ') return false;
  if (scalar < 0x7F) return scalar < 0x20;
  const auto character = static_cast<UChar32>(scalar);
  const auto category = U_MASK(u_charType(character));
  constexpr auto kBlankCategories = U_GC_CC_MASK | U_GC_CF_MASK | U_GC_Z_MASK;
  return (category & kBlankCategories) != 0 || U_IS_UNICODE_NONCHAR(character) ||
         u_hasBinaryProperty(character, UCHAR_DEFAULT_IGNORABLE_CODE_POINT) != 0 ||
         std::find(kBlankSymbols.begin(), kBlankSymbols.end(), scalar) != kBlankSymbols.end();
}

std::string notation(char32_t scalar) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  constexpr int kFewestDigits = 4;
  std::string digits;
  for (char32_t rest = scalar; rest != 0 || digits.size() < kFewestDigits; rest >>= 4U)
    digits += kDigits[rest & 0xFU];
  std::reverse(digits.begin(), digits.end());
  return "⟨U+" + digits + "⟩";
}

}  // namespace

void forEachOccurrence(std::string_view text, const std::function<bool(const Occurrence&)>& visit) {
  walk(text, [&visit](const Place& place) {
    return !place.finding || visit({*place.finding, place.scalar, place.line, place.column});
  });
}

void reveal(std::string_view text, const std::function<void(const RevealedPiece&)>& show) {
  std::string plain;
  const auto showPlain = [&] {
    if (!plain.empty()) show({plain, false, std::nullopt, false});
    plain.clear();
  };
  walk(text, [&](const Place& place) {
    if (!place.finding && !isBlank(place.scalar) && place.scalar != kOpening) {
      appendUtf8(plain, place.scalar);
      return true;
    }
    showPlain();
    show({notation(place.scalar), true, place.finding, place.endsLine, place.scalar, place.line,
          place.column});
    return true;
  });
  showPlain();
}

std::string revealed(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  reveal(text, [&result](const RevealedPiece& piece) { result += piece.text; });
  return result;
}

}  // namespace molvane::PasteGuard
