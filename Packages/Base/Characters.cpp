#include "Base/Characters.hpp"

#include <unicode/brkiter.h>
#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "Base/Utf8.hpp"

namespace molvane {

namespace {

void check(UErrorCode status) {
  if (U_FAILURE(status)) throw std::runtime_error(std::string("Unicode library: ") + u_errorName(status));
}

bool isAscii(std::string_view text) noexcept {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// Walks a text from one character boundary to the next.
class BoundaryWalk {
 public:
  explicit BoundaryWalk(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    iterator_.reset(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    utext_openUTF8(&text_, text.data(), static_cast<std::int64_t>(text.size()), &status);
    if (iterator_) iterator_->setText(&text_, status);
    check(status);
  }
  BoundaryWalk(const BoundaryWalk&) = delete;
  BoundaryWalk& operator=(const BoundaryWalk&) = delete;
  ~BoundaryWalk() { utext_close(&text_); }

  /// The byte offset of the next boundary; false behind the last one.
  bool next(std::size_t& offset) {
    const std::int32_t boundary = iterator_->next();
    if (boundary == icu::BreakIterator::DONE) return false;
    offset = static_cast<std::size_t>(boundary);
    return true;
  }

 private:
  UText text_ = UTEXT_INITIALIZER;
  std::unique_ptr<icu::BreakIterator> iterator_;
};

template <typename Visit>
void forEachCharacter(std::string_view text, Visit visit) {
  // The library counts in signed 32 bits.
  if (text.size() > static_cast<std::size_t>(INT32_MAX))
    throw std::runtime_error("Unicode library: text too long");
  BoundaryWalk walk(text);
  std::size_t start = 0;
  for (std::size_t end = 0; walk.next(end); start = end) visit(text.substr(start, end - start));
}

const icu::Normalizer2& decomposer() {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* normalizer = icu::Normalizer2::getNFDInstance(status);
  check(status);
  return *normalizer;
}

icu::UnicodeString decomposed(const icu::UnicodeString& text) {
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString result = decomposer().normalize(text, status);
  check(status);
  return result;
}

icu::UnicodeString unicodeString(std::string_view text) {
  // Four bytes at most for each of ICU's 32-bit lengths, so that no conversion on the way can overflow one.
  if (text.size() > static_cast<std::size_t>(INT32_MAX) / 4) {
    throw std::runtime_error("Unicode library: text too long");
  }
  return icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
}

}  // namespace

std::size_t characterCount(std::string_view text) {
  std::size_t count = 0;
  if (isAscii(text)) {
    char before = 0;
    for (const char c : text) {
      if (before != '\r' || c != '\n') ++count;
      before = c;
    }
    return count;
  }
  forEachCharacter(text, [&](std::string_view) { ++count; });
  return count;
}

std::vector<std::string_view> characters(std::string_view text) {
  std::vector<std::string_view> found;
  forEachCharacter(text, [&](std::string_view character) { found.push_back(character); });
  return found;
}

std::string lowercased(std::string_view text) {
  std::string lower;
  lower.reserve(text.size());
  for (const char32_t scalar : Utf8Scalars(text)) {
    if (scalar < 0x80) {
      lower += static_cast<char>(scalar >= 'A' && scalar <= 'Z' ? scalar + ('a' - 'A') : scalar);
    } else {
      // One scalar at a time, so that no context can make a sigma final.
      icu::UnicodeString(static_cast<UChar32>(scalar)).toLower(icu::Locale::getRoot()).toUTF8String(lower);
    }
  }
  return lower;
}

bool canonicallyEqual(std::string_view a, std::string_view b) {
  if (a == b) return true;
  if (isAscii(a) && isAscii(b)) return false;
  return decomposed(unicodeString(a)) == decomposed(unicodeString(b));
}

std::string canonicalForm(std::string_view text) {
  std::string form;
  if (isAscii(text)) return form.assign(text);
  decomposed(unicodeString(text)).toUTF8String(form);
  return form;
}

std::string foldingCaseAndDiacritics(std::string_view text) {
  // Folding can compose new accents (“ǰ”), so the text is taken apart before and after.
  const icu::UnicodeString folded = decomposed(decomposed(unicodeString(text)).foldCase(U_FOLD_CASE_DEFAULT));
  std::string bare;
  for (std::int32_t at = 0; at < folded.length(); at = folded.moveIndex32(at, 1)) {
    const UChar32 scalar = folded.char32At(at);
    if (u_charType(scalar) != U_NON_SPACING_MARK) appendUtf8(bare, static_cast<char32_t>(scalar));
  }
  return bare;
}

}  // namespace molvane
