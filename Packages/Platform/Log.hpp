#pragma once

#include <string_view>

namespace molvane {

/// Writes one line to standard error, in one piece, so that lines of different threads never mix. `line`
/// comes without its newline. A backslash and every byte that is not printable ASCII are written as "\xHH",
/// so that a text from outside can neither fake a line of its own nor steer a terminal. What is longer than a
/// pipe takes in one piece (PIPE_BUF) is cut, and ends with "...".
///
/// A reader that does not read holds nobody up: a line that finds no room within a tenth of a second is
/// dropped, and so, without another wait, is each one after it until there is room again; then a line says
/// how many are missing. Any other failed write is ignored: there is nowhere else to say so.
///
/// That holds for files, and for pipes and sockets that no other process fills at the same time. A terminal
/// that is stopped in the middle of a line can still hold the caller.
///
/// Any thread; the calls wait for one another.
void logLine(std::string_view line);

/// Logs why and ends the process at once, for conditions after which no answer could be right.
[[noreturn]] void fatalError(std::string_view why);

}  // namespace molvane
