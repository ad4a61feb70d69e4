#pragma once

#include <string>
#include <string_view>

namespace molvane::ctl {

/// `text` with everything made visible that could command a terminal or disguise what it shows: control
/// characters as "\x1b", characters that reorder, hide or break lines as "\u{202e}", bytes that are no UTF-8
/// as "\xff". Tab and the ends of lines stay, a line's carriage return before its newline too. The result is
/// for eyes; the original cannot be had back from it.
[[nodiscard]] std::string visibleText(std::string_view text);

}  // namespace molvane::ctl
