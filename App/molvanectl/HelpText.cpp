#include "molvanectl/HelpText.hpp"

#include <cstddef>

#include "molvanectl/TextLayout.hpp"

namespace molvane::ctl {
namespace {

constexpr std::size_t kRightColumn = 24;

}  // namespace

std::string helpText(const HelpPage& page) {
  std::string text = "Usage: " + page.usage + "\n\n" + wrapped(page.description);
  for (const HelpSection& section : page.sections) {
    if (section.rows.empty()) continue;
    text.append("\n").append(section.title).append(":\n");
    for (const HelpRow& row : section.rows) {
      text += twoColumns(std::string(2, ' ').append(row.left), row.right, kRightColumn);
    }
  }
  if (!page.example.empty()) text.append("\nExample:\n  ").append(page.example).append("\n");
  return text;
}

}  // namespace molvane::ctl
