#pragma once

#include <string>

namespace molvane::ctl {

/// What a person types on the controlling terminal after `prompt`, one line, with echo off. The terminal gets
/// its echo back, and loses what was typed and not read, whatever happens but SIGKILL and SIGSTOP: a signal
/// that ends or stops the program is obeyed after that, and when the program goes on after a stop the
/// question is asked again.
///
/// Throws std::runtime_error when there is no terminal, or it ends before a line was typed. Changes signal
/// dispositions while it runs, so no other thread may.
[[nodiscard]] std::string secretFromTerminal(const std::string& prompt);

}  // namespace molvane::ctl
