#include "HelperKit/Devices/ToolOutput.hpp"

#include <algorithm>
#include <utility>

#include "Base/Utf8.hpp"

namespace molvane {
namespace {

std::size_t lengthOfCharacter(unsigned char lead) {
  if (lead >= 0xF0) return lead <= 0xF4 ? 4 : 1;
  if (lead >= 0xE0) return 3;
  return lead >= 0xC2 ? 2 : 1;
}

// How many bytes at the end of `bytes` are the beginning of a character whose rest may still come.
std::size_t begunCharacter(std::string_view bytes) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(3, bytes.size()); ++length) {
    const std::string_view tail = bytes.substr(bytes.size() - length);
    const LeadingScalar head = leadingScalar(tail);
    if (head.valid) return 0;
    if (head.length == length && length < lengthOfCharacter(static_cast<unsigned char>(tail[0]))) {
      return length;
    }
  }
  return 0;
}

}  // namespace

std::string ToolOutput::textOf(std::string_view piece) {
  if (isCut_) return "";
  const std::size_t room = kibibytes_ * 1024 - taken_;
  isCut_ = piece.size() > room;
  piece = piece.substr(0, room);
  taken_ += piece.size();

  std::string bytes = std::exchange(begun_, {}).append(piece);
  begun_ = bytes.substr(bytes.size() - begunCharacter(bytes));
  bytes.resize(bytes.size() - begun_.size());
  std::string text = repairedUtf8(bytes);
  if (isCut_) text += rest() + "\n[output cut after " + std::to_string(kibibytes_) + " KiB]\n";
  return text;
}

std::string ToolOutput::rest() { return repairedUtf8(std::exchange(begun_, {})); }

}  // namespace molvane
