#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Base/Wipe.hpp"

namespace molvane::LocalAccountRunner {

/// One run of a system tool. A plain value.
struct Step {
  /// A secret to type when the tool asks for a password.
  struct Answer {
    /// A fragment of the prompt's line that it answers, in upper or lower case alike; nothing for any prompt
    /// that no other answer claims.
    std::optional<std::string> prompt;
    std::string reply;

    ~Answer() { wipe(reply); }
    bool operator==(const Answer&) const = default;
  };

  std::string executable;  ///< absolute path
  std::vector<std::string> arguments;
  std::vector<Answer> answers;  ///< none: the tool asks nothing

  bool operator==(const Step&) const = default;
};

}  // namespace molvane::LocalAccountRunner
