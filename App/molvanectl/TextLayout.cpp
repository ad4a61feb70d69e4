#include "molvanectl/TextLayout.hpp"

#include <algorithm>

namespace molvane::ctl {
namespace {

std::size_t columns(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

}  // namespace

std::string wrapped(std::string_view text, std::size_t indent) {
  std::string lines;
  std::size_t used = 0;
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(text.size(), word.size() + 1));
    if (word.empty()) continue;
    if (used > 0 && used + 1 + columns(word) <= kTextWidth) {
      lines += ' ';
      used += 1 + columns(word);
    } else {
      if (used > 0) lines += '\n';
      lines.append(indent, ' ');
      used = indent + columns(word);
    }
    lines += word;
  }
  if (used > 0) lines += '\n';
  return lines;
}

std::string twoColumns(std::string_view left, std::string_view right, std::size_t column) {
  std::string block = wrapped(right, column);
  if (columns(left) + 2 > column || block.empty()) return std::string(left) + "\n" + block;
  return std::string(left) + block.substr(columns(left));
}

}  // namespace molvane::ctl
