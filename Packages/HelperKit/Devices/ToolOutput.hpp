#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace molvane {

/// Makes text of what a tool writes, piece by piece: invalid UTF-8 repaired, a character that comes in two
/// pieces put together, and no more than a bounded amount of it.
class ToolOutput {
 public:
  explicit ToolOutput(std::size_t kibibytesKept) : kibibytes_(kibibytesKept) {}

  /// The text that `piece` adds; where the bound is reached the line that says so, and nothing after it.
  [[nodiscard]] std::string textOf(std::string_view piece);

  /// The text of what is left when the output ends in the middle of a character.
  [[nodiscard]] std::string rest();

 private:
  const std::size_t kibibytes_;
  std::size_t taken_ = 0;
  bool isCut_ = false;
  std::string begun_;  // the beginning of a character
};

}  // namespace molvane
