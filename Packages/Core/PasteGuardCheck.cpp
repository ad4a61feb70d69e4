#include <array>
#include <cstddef>
#include <cstdint>

#include "Base/Ascii.hpp"
#include "Base/Bytes.hpp"
#include "Core/PasteGuard.hpp"
#include "Core/PasteGuardBlock.hpp"
#include "Core/PasteGuardKind.hpp"

namespace molvane::PasteGuard {

namespace {

/// What a byte calls for when it is met at the head of a sequence. A continuation byte met there belongs to a
/// sequence that holds no finding, or to none.
enum class ByteClass : std::uint8_t {
  quiet,        ///< no finding, whatever follows
  letter,       ///< an ASCII letter
  newline,      ///< LF, VT, FF or CR
  control,      ///< another control character
  leadOfTwo,    ///< begins sequences of two bytes of which some are findings or newlines
  leadOfThree,  ///< the same of three bytes
};

constexpr ByteClass byteClass(unsigned byte) noexcept {
  if (isAsciiLetter(byte)) return ByteClass::letter;
  if (byte >= 0x0A && byte <= 0x0D) return ByteClass::newline;
  if (byte == '\t') return ByteClass::quiet;
  if (byte < 0x80) return isControl(byte) ? ByteClass::control : ByteClass::quiet;
  switch (byte) {
    case 0xC2:  // U+0080 to U+00BF
    case 0xCD:  // U+0340 to U+037F
    case 0xCE:
    case 0xCF:  // to U+03FF
    case 0xD0:
    case 0xD1:
    case 0xD2:
    case 0xD3:  // to U+04FF
    case 0xD8:  // U+0600 to U+063F
      return ByteClass::leadOfTwo;
    case 0xE1:  // U+1000 to U+1FFF
    case 0xE2:  // U+2000 to U+2FFF
    case 0xEF:  // U+F000 to U+FFFF
      return ByteClass::leadOfThree;
    default:
      return ByteClass::quiet;
  }
}

constexpr std::array<ByteClass, 256> kByteClasses = [] {
  std::array<ByteClass, 256> classes{};
  for (unsigned byte = 0; byte < classes.size(); ++byte) classes[byte] = byteClass(byte);
  return classes;
}();

constexpr bool isContinuation(unsigned char byte) noexcept { return (byte & 0xC0U) == 0x80; }

constexpr bool isUnicodeNewline(char32_t scalar) noexcept {
  return scalar == 0x0085 || scalar == 0x2028 || scalar == 0x2029;
}

/// One walk over the bytes of a text. Greek and Cyrillic letters count by what else stands on their line, so
/// a line is looked at more closely from its first such letter on and not before.
class Scan {
 public:
  explicit Scan(std::string_view text)
      : begin_(asBytes(text).data()), end_(begin_ + text.size()), at_(begin_), unread_(begin_) {}

  Report run() {
    while (at_ != end_) {
      if (line_ == Line::unread && skipPlainBlock()) continue;
      scanBytes();
    }
    return report();
  }

 private:
  /// What is known of the current line.
  enum class Line {
    unread,    ///< no Greek or Cyrillic letter yet; whether it holds an ASCII letter has not been asked
    noLetter,  ///< Greek or Cyrillic, and no ASCII letter so far
    mixed,     ///< both
  };

  bool skipPlainBlock() {
    if (end_ - at_ < kBlock || isSecondHalfOfNewline()) return false;
    const BlockSummary block = plainBlockSummary(at_);
    if (!block.plain) return false;
    if (block.newlines != 0) unread_ = at_;
    newlines_ += block.newlines;
    at_ += kBlock;
    return true;
  }

  void scanBytes() {
    const unsigned char* const limit = end_ - at_ > kBlock ? at_ + kBlock : end_;
    while (at_ < limit) {
      const ByteClass skippable = line_ == Line::noLetter ? ByteClass::quiet : ByteClass::letter;
      while (at_ < limit && kByteClasses[*at_] <= skippable) ++at_;
      if (at_ < limit) scanSequence();
    }
  }

  void scanSequence() {
    switch (kByteClasses[*at_]) {
      case ByteClass::quiet:
        ++at_;
        return;
      case ByteClass::letter:
        foundAsciiLetter();
        ++at_;
        return;
      case ByteClass::newline:
        scanNewline();
        return;
      case ByteClass::control:
        ++control_;
        ++at_;
        return;
      case ByteClass::leadOfTwo:
        if (end_ - at_ < 2 || !isContinuation(at_[1])) {
          ++at_;
          return;
        }
        found((at_[0] & 0x1FU) << 6U | (at_[1] & 0x3FU), 2);
        return;
      case ByteClass::leadOfThree:
        if (end_ - at_ < 3 || !isContinuation(at_[1]) || !isContinuation(at_[2])) {
          ++at_;
          return;
        }
        found((at_[0] & 0x0FU) << 12U | (at_[1] & 0x3FU) << 6U | (at_[2] & 0x3FU), 3);
        return;
    }
  }

  [[nodiscard]] bool isSecondHalfOfNewline() const {
    return *at_ == '\n' && at_ != begin_ && at_[-1] == '\r';
  }

  void scanNewline() {
    // The LF of a CR LF ends no further line.
    if (isSecondHalfOfNewline()) {
      ++at_;
      unread_ = at_;
    } else {
      endLine(1);
    }
  }

  void found(char32_t scalar, std::ptrdiff_t length) {
    if (isGreekOrCyrillic(scalar)) {
      foundGreekOrCyrillic();
    } else if (isUnicodeNewline(scalar)) {
      endLine(length);
      return;
    } else if (const std::optional<Finding> finding = kind(scalar)) {
      count(*finding);
    }
    at_ += length;
  }

  void count(Finding finding) {
    switch (finding) {
      case Finding::bidi:
        ++bidi_;
        break;
      case Finding::invisible:
        ++invisible_;
        break;
      case Finding::lookalike:
        ++lookalike_;
        break;
      case Finding::control:
        ++control_;
        break;
      case Finding::runs:
        break;
    }
  }

  void foundGreekOrCyrillic() {
    if (line_ == Line::unread) line_ = asciiLetterBefore() ? Line::mixed : Line::noLetter;
    ++(line_ == Line::mixed ? lookalike_ : waiting_);
  }

  void foundAsciiLetter() {
    if (line_ != Line::noLetter) return;
    line_ = Line::mixed;
    lookalike_ += waiting_;
    waiting_ = 0;
  }

  // Backwards, because the nearest letter decides. Only plain blocks hold newlines behind unread_, and of
  // those only LF and CR.
  [[nodiscard]] bool asciiLetterBefore() const {
    for (const unsigned char* byte = at_; byte != unread_;) {
      --byte;
      if (*byte == '\n') return false;
      if (kByteClasses[*byte] == ByteClass::letter) return true;
    }
    return false;
  }

  void endLine(std::ptrdiff_t newlineLength) {
    ++newlines_;
    at_ += newlineLength;
    unread_ = at_;
    line_ = Line::unread;
    waiting_ = 0;
  }

  [[nodiscard]] bool endsWithNewline() const {
    const std::ptrdiff_t size = end_ - begin_;
    if (size >= 1 && kByteClasses[end_[-1]] == ByteClass::newline) return true;
    if (size >= 2 && end_[-2] == 0xC2 && end_[-1] == 0x85) return true;
    return size >= 3 && end_[-3] == 0xE2 && end_[-2] == 0x80 && (end_[-1] == 0xA8 || end_[-1] == 0xA9);
  }

  [[nodiscard]] Report report() const {
    Report report;
    const auto put = [&report](Finding finding, std::int64_t number) {
      if (number > 0) report.findings[finding] = number;
    };
    put(Finding::bidi, bidi_);
    put(Finding::invisible, invisible_);
    put(Finding::lookalike, lookalike_);
    put(Finding::control, control_);
    if (newlines_ > 0) put(Finding::runs, newlines_ + (endsWithNewline() ? 0 : 1));
    return report;
  }

  const unsigned char* begin_;
  const unsigned char* end_;
  const unsigned char* at_;
  /// From here to at_ stand the current line and, at most, whole lines before it.
  const unsigned char* unread_;
  Line line_ = Line::unread;
  std::int64_t waiting_ = 0;  ///< Greek and Cyrillic letters of a line without ASCII letter so far
  std::int64_t newlines_ = 0;
  std::int64_t bidi_ = 0;
  std::int64_t invisible_ = 0;
  std::int64_t lookalike_ = 0;
  std::int64_t control_ = 0;
};

}  // namespace

Report check(std::string_view text) { return Scan(text).run(); }

}  // namespace molvane::PasteGuard
