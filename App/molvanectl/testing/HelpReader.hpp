#pragma once

#include <string>
#include <vector>

#include "molvanectl/testing/InProcess.hpp"

namespace molvane::ctl {

using Words = std::vector<std::string>;

[[nodiscard]] std::vector<std::string> lines(const std::string& text);

/// A command as its help shows it.
struct HelpEntry {
  Words name;  ///< without the program's own
  std::string help;
  Words options;  ///< long names, with the hyphens
};

/// The program itself and every command below it, found by reading help from the top.
[[nodiscard]] std::vector<HelpEntry> readAllHelp(InProcess& program, const Words& name = {});

}  // namespace molvane::ctl
