#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace molvane::ctl {

/// Columns that every text of the program keeps to.
inline constexpr std::size_t kTextWidth = 80;

/// `text` broken at blanks into lines of at most kTextWidth columns, each indented by `indent` and ended by a
/// newline. A word that does not fit stands on a line of its own. A scalar counts as one column.
[[nodiscard]] std::string wrapped(std::string_view text, std::size_t indent = 0);

/// `left`, and beside it `right` wrapped from `column` on; below it where `left` reaches into that column.
[[nodiscard]] std::string twoColumns(std::string_view left, std::string_view right, std::size_t column);

}  // namespace molvane::ctl
