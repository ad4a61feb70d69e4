#pragma once

#include <string>

#include "molvanectl/Session.hpp"

namespace molvane::ctl {

/// A question that a person answers by typing a word.
struct Question {
  std::string warning;  ///< what will happen, without a full stop: "Everything on disk4 will be erased"
  std::string answer;   ///< the word; one that is empty cannot be typed
  std::string option;   ///< what a script gives in place of the answer, as "--yes"
};

/// Whether somebody can be asked: not with JSON, nor when standard input or standard error is no terminal.
[[nodiscard]] bool canAsk(Session& session);

/// Throws UsageError with the option that stands for the answer.
[[noreturn]] void refuseUnasked(const Question& question);

/// Has the person at the terminal type the word. Returns whether they did; if not, that has been reported.
/// Throws UsageError where nobody can be asked.
[[nodiscard]] bool confirm(Session& session, const Question& question);

/// The question before everything on the disk or the volume `name` is lost.
[[nodiscard]] Question erasing(const std::string& name);

}  // namespace molvane::ctl
