#include "Platform/Log.hpp"

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace molvane {

void logLine(std::string_view line) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string text;
  text.reserve(line.size() + 1);
  for (const char c : line) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte >= 0x7F || c == '\\') {
      text += {'\\', 'x', kHex[byte >> 4], kHex[byte & 0xF]};
    } else {
      text += c;
    }
  }
  text += '\n';
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

void fatalError(std::string_view why) {
  logLine("MolvaneHelper: fatal error: " + std::string(why));
  std::abort();
}

}  // namespace molvane
