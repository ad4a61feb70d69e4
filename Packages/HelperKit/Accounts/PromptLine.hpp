#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace molvane {

/// Follows what a tool writes and knows the last line of it, as far as it may be a prompt.
///
/// The bytes may come in pieces of any size, cut anywhere; each byte is looked at once, but for the line that
/// looks like a prompt.
class PromptLine {
 public:
  /// Longer lines are no prompts.
  static constexpr std::size_t kLongest = std::size_t{64} << 10U;

  PromptLine() = default;
  ~PromptLine();
  PromptLine(const PromptLine&) = delete;
  PromptLine& operator=(const PromptLine&) = delete;

  void add(std::string_view bytes);

  /// The last line that is not empty, in lower case, when it asks for a password: it holds "password" and,
  /// but for white space, ends with ":". It may have been ended by a newline.
  [[nodiscard]] std::optional<std::string> asking() const;

  /// What was written so far counts no more.
  void forget();

 private:
  void addScalar(char32_t scalar, std::string_view itsBytes);

  std::string cutOff_;  ///< the beginning of a character that has not come in full
  std::string line_;    ///< at most kLongest bytes
  bool tooLong_ = false;
  bool ended_ = false;        ///< a newline came after `line_`
  char32_t lastVisible_ = 0;  ///< of `line_`
};

}  // namespace molvane
