#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "molvanectl/OptionSet.hpp"

namespace molvane::ctl {

/// A titled list of options, arguments or commands; empty ones are left out.
struct HelpSection {
  std::string_view title;
  std::vector<HelpRow> rows;
};

/// The help of one command.
struct HelpPage {
  std::string usage;  ///< what follows "Usage: "
  std::string_view description;
  std::vector<HelpSection> sections;
  std::string_view example;
};

/// The page as text, laid out for 80 columns.
[[nodiscard]] std::string helpText(const HelpPage& page);

}  // namespace molvane::ctl
