#include "Base/Characters.hpp"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "Base/UnicodeLibrary.hpp"
#include "Base/Utf8.hpp"

namespace molvane {

namespace {

// The library counts in signed 32 bits; a quarter leaves room for what a conversion adds.
constexpr std::size_t kLongestText = static_cast<std::size_t>(INT32_MAX) / 4;

void checkLength(std::string_view text) {
  if (text.size() > kLongestText) throw std::runtime_error("Unicode library: text too long");
}

bool isAscii(std::string_view text) noexcept {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// Walks a text from one character boundary to the next.
class BoundaryWalk {
 public:
  explicit BoundaryWalk(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    iterator_.reset(icu_.ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status));
    icu_.utext_openUTF8(&text_, text.data(), static_cast<std::int64_t>(text.size()), &status);
    icu_.ubrk_setUText(iterator_.get(), &text_, &status);
    icu_.check(status);
  }
  BoundaryWalk(const BoundaryWalk&) = delete;
  BoundaryWalk& operator=(const BoundaryWalk&) = delete;
  ~BoundaryWalk() { icu_.utext_close(&text_); }

  /// The byte offset of the next boundary; false behind the last one.
  bool next(std::size_t& offset) {
    const std::int32_t boundary = icu_.ubrk_next(iterator_.get());
    if (boundary == UBRK_DONE) return false;
    offset = static_cast<std::size_t>(boundary);
    return true;
  }

 private:
  struct Closer {
    void operator()(UBreakIterator* iterator) const { UnicodeLibrary::get().ubrk_close(iterator); }
  };

  const UnicodeLibrary& icu_ = UnicodeLibrary::get();
  UText text_ = UTEXT_INITIALIZER;
  std::unique_ptr<UBreakIterator, Closer> iterator_;
};

template <typename Visit>
void forEachCharacter(std::string_view text, Visit visit) {
  checkLength(text);
  BoundaryWalk walk(text);
  std::size_t start = 0;
  for (std::size_t end = 0; walk.next(end); start = end) visit(text.substr(start, end - start));
}

std::u16string utf16(std::string_view text) {
  checkLength(text);
  std::u16string units;
  units.reserve(text.size());
  for (const char32_t scalar : Utf8Scalars(text)) {
    if (U_IS_SUPPLEMENTARY(scalar)) {
      units += static_cast<char16_t>(U16_LEAD(scalar));
      units += static_cast<char16_t>(U16_TRAIL(scalar));
    } else {
      units += static_cast<char16_t>(scalar);
    }
  }
  return units;
}

/// Calls `visit` for each scalar of well-formed UTF-16.
template <typename Visit>
void forEachScalar(const std::u16string& units, Visit visit) {
  for (std::size_t at = 0; at < units.size();) {
    char32_t scalar = 0;
    U16_NEXT(units.data(), at, units.size(), scalar);
    visit(scalar);
  }
}

/// What `convert(to, room, status)` makes: the number of units that it needs, written where there is room.
template <typename Convert>
std::u16string converted(std::size_t expected, Convert convert) {
  std::u16string result(expected, u'\0');
  for (;;) {
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t length = convert(result.data(), static_cast<std::int32_t>(result.size()), &status);
    const bool tooSmall = status == U_BUFFER_OVERFLOW_ERROR;
    if (!tooSmall) UnicodeLibrary::get().check(status);
    result.resize(static_cast<std::size_t>(length));
    if (!tooSmall) return result;
  }
}

std::u16string decomposed(const std::u16string& text) {
  const UnicodeLibrary& icu = UnicodeLibrary::get();
  UErrorCode status = U_ZERO_ERROR;
  const UNormalizer2* decomposer = icu.unorm2_getNFDInstance(&status);
  icu.check(status);
  return converted(text.size() + 8, [&](char16_t* to, std::int32_t room, UErrorCode* failure) {
    return icu.unorm2_normalize(decomposer, text.data(), static_cast<std::int32_t>(text.size()), to, room,
                                failure);
  });
}

std::u16string caseFolded(const std::u16string& text) {
  return converted(text.size() + 8, [&](char16_t* to, std::int32_t room, UErrorCode* failure) {
    return UnicodeLibrary::get().u_strFoldCase(to, room, text.data(), static_cast<std::int32_t>(text.size()),
                                               U_FOLD_CASE_DEFAULT, failure);
  });
}

/// In no language's manner, and without anything around it that could make a sigma final.
std::u16string scalarInLowerCase(std::string_view scalar) {
  const std::u16string text = utf16(scalar);
  return converted(8, [&](char16_t* to, std::int32_t room, UErrorCode* failure) {
    return UnicodeLibrary::get().u_strToLower(to, room, text.data(), static_cast<std::int32_t>(text.size()),
                                              "", failure);
  });
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
  const Utf8Scalars scalars(text);
  for (auto scalar = scalars.begin(); scalar != scalars.end(); ++scalar) {
    if (*scalar < 0x80) {
      lower += static_cast<char>(*scalar >= 'A' && *scalar <= 'Z' ? *scalar + ('a' - 'A') : *scalar);
    } else {
      forEachScalar(scalarInLowerCase(scalar.bytes()), [&](char32_t one) { appendUtf8(lower, one); });
    }
  }
  return lower;
}

bool canonicallyEqual(std::string_view a, std::string_view b) {
  if (a == b) return true;
  if (isAscii(a) && isAscii(b)) return false;
  return decomposed(utf16(a)) == decomposed(utf16(b));
}

std::string canonicalForm(std::string_view text) {
  std::string form;
  if (isAscii(text)) return form.assign(text);
  forEachScalar(decomposed(utf16(text)), [&](char32_t scalar) { appendUtf8(form, scalar); });
  return form;
}

std::string foldingCaseAndDiacritics(std::string_view text) {
  const UnicodeLibrary& icu = UnicodeLibrary::get();
  std::string bare;
  // Folding can compose new accents (“ǰ”), so the text is taken apart before and after.
  forEachScalar(decomposed(caseFolded(decomposed(utf16(text)))), [&](char32_t scalar) {
    if (icu.u_charType(static_cast<UChar32>(scalar)) != U_NON_SPACING_MARK) appendUtf8(bare, scalar);
  });
  return bare;
}

}  // namespace molvane
