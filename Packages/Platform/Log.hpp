#pragma once

#include <string_view>

namespace molvane {

/// Writes one line to standard error, in one piece, so that lines of different threads never mix. `line`
/// comes without its newline. A backslash and every byte that is not printable ASCII are written as "\xHH",
/// so that a text from outside can neither fake a line of its own nor steer a terminal. A failed write is
/// ignored: there is nowhere else to say so.
void logLine(std::string_view line);

/// Logs why and ends the process at once, for conditions after which no answer could be right.
[[noreturn]] void fatalError(std::string_view why);

}  // namespace molvane
