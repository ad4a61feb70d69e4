#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace molvane {

/// What stands in for bytes that are no UTF-8.
inline constexpr char32_t kReplacementScalar = 0xFFFD;

/// One Unicode scalar at the head of a byte string.
struct LeadingScalar {
  /// The scalar, or kReplacementScalar where the bytes are no UTF-8.
  char32_t value = 0;
  /// Bytes taken. Of invalid bytes: the longest run that could have begun a valid sequence, at least one
  /// byte.
  std::size_t length = 0;
  /// False where `value` stands in for invalid bytes.
  bool valid = false;
};

/// The scalar at the head of `bytes`, which must not be empty.
[[nodiscard]] LeadingScalar leadingScalar(std::string_view bytes) noexcept;

/// Whether `bytes` is well-formed UTF-8: no overlong form, no surrogate, nothing above U+10FFFF, nothing cut
/// off.
[[nodiscard]] bool isValidUtf8(std::string_view bytes) noexcept;

/// `bytes` as well-formed UTF-8: each longest run of bytes that could have begun a valid sequence but did not
/// go on as one becomes one U+FFFD. Valid input comes back byte for byte, NUL and noncharacters included.
[[nodiscard]] std::string repairedUtf8(std::string_view bytes);

/// Appends the UTF-8 of `scalar`; what is no scalar (a surrogate, or above U+10FFFF) is appended as U+FFFD.
void appendUtf8(std::string& text, char32_t scalar);

/// The Unicode scalars of a text, for a range-based for. Invalid bytes are read as by leadingScalar. Holds a
/// view: the text must outlive it.
class Utf8Scalars {
 public:
  class Iterator {
   public:
    Iterator() = default;
    explicit Iterator(std::string_view rest) noexcept : rest_(rest) { read(); }

    char32_t operator*() const noexcept { return scalar_.value; }
    Iterator& operator++() noexcept {
      rest_.remove_prefix(scalar_.length);
      read();
      return *this;
    }
    friend bool operator==(const Iterator& a, const Iterator& b) noexcept {
      return a.rest_.size() == b.rest_.size();
    }

    /// The text from this scalar to the end; begins with the bytes of the scalar.
    [[nodiscard]] std::string_view rest() const noexcept { return rest_; }
    /// The bytes of this scalar as they stand in the text.
    [[nodiscard]] std::string_view bytes() const noexcept { return rest_.substr(0, scalar_.length); }

   private:
    void read() noexcept {
      if (!rest_.empty()) scalar_ = leadingScalar(rest_);
    }

    std::string_view rest_;
    LeadingScalar scalar_;
  };

  explicit Utf8Scalars(std::string_view text) noexcept : text_(text) {}

  [[nodiscard]] Iterator begin() const noexcept { return Iterator(text_); }
  [[nodiscard]] Iterator end() const noexcept { return Iterator(text_.substr(text_.size())); }

 private:
  std::string_view text_;
};

}  // namespace molvane
