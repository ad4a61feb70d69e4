#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace molvane {

/// Overwrites a text that held a secret and makes it empty. Its buffer only: what was copied, or left behind
/// when the text grew, stays.
void wipe(std::string& secret) noexcept;

/// Appends to a text that may hold a secret, and leaves nothing behind when it grows.
void appendWiping(std::string& secret, std::string_view more);

/// A text that is wiped when it goes.
class WipedText {
 public:
  explicit WipedText(std::string text = {}) noexcept : text_(std::move(text)) {}
  ~WipedText() { wipe(text_); }
  WipedText(const WipedText&) = delete;
  WipedText& operator=(const WipedText&) = delete;

  std::string& operator*() noexcept { return text_; }
  const std::string& operator*() const noexcept { return text_; }
  std::string* operator->() noexcept { return &text_; }

 private:
  std::string text_;
};

}  // namespace molvane
