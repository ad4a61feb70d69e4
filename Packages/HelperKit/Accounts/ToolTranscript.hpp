#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace molvane {

/// What a tool wrote, until it can be shown. Of a flood it keeps the beginning and the end; its memory is
/// overwritten before it is given back.
class ToolTranscript {
 public:
  /// Keeps all of up to twice as many bytes, and of more so many from either end.
  explicit ToolTranscript(std::size_t bytesKeptOfEach) : kept_(bytesKeptOfEach) {}
  ~ToolTranscript();
  ToolTranscript(const ToolTranscript&) = delete;
  ToolTranscript& operator=(const ToolTranscript&) = delete;

  void add(std::string_view bytes);

  /// The text: invalid UTF-8 repaired, "•••" for each of `secrets` wherever it stands, the longest first, no
  /// carriage return, no white space and newlines at the ends. A line stands in place of what is left out,
  /// with nothing next to it that might be a part of a secret.
  [[nodiscard]] std::string text(std::vector<std::string_view> secrets) const;

 private:
  const std::size_t kept_;
  std::string beginning_;
  std::string end_;  ///< what follows; its last `kept_` bytes count
  std::size_t dropped_ = 0;
};

}  // namespace molvane
