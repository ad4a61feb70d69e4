#include "HelperKit/Accounts/ToolTranscript.hpp"

#include <algorithm>

#include "Base/Text.hpp"
#include "Base/Utf8.hpp"
#include "Base/Wipe.hpp"

namespace molvane {

namespace {

constexpr std::string_view kMask = "•••";

void replaceAll(std::string& text, std::string_view found, std::string_view replacement) {
  std::size_t at = text.find(found);
  if (at == std::string::npos) return;
  WipedText replaced;
  replaced->reserve(text.size());
  std::size_t copied = 0;
  for (; at != std::string::npos; at = text.find(found, copied)) {
    replaced->append(text, copied, at - copied).append(replacement);
    copied = at + found.size();
  }
  replaced->append(text, copied);
  text.swap(*replaced);
}

/// The longest come first, so that no end of one is left where another is its beginning.
std::string masked(std::string_view bytes, const std::vector<std::string_view>& longestFirst) {
  std::string text = repairedUtf8(bytes);
  for (const std::string_view secret : longestFirst) {
    if (!secret.empty()) replaceAll(text, secret, kMask);
  }
  return text;
}

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

// Both take at least `count` bytes away, and what they leave is whole characters.
void shortenEnd(std::string& text, std::size_t count) {
  std::size_t left = text.size() - std::min(count, text.size());
  while (left > 0 && left < text.size() && isContinuation(text[left])) --left;
  text.resize(left);
}
void shortenBeginning(std::string& text, std::size_t count) {
  std::size_t gone = std::min(count, text.size());
  while (gone < text.size() && isContinuation(text[gone])) ++gone;
  text.erase(0, gone);
}

}  // namespace

ToolTranscript::~ToolTranscript() {
  wipe(beginning_);
  wipe(end_);
}

void ToolTranscript::add(std::string_view bytes) {
  const std::size_t fits = std::min(bytes.size(), kept_ - beginning_.size());
  appendWiping(beginning_, bytes.substr(0, fits));
  appendWiping(end_, bytes.substr(fits));
  // Not at every piece, so that a flood in small pieces moves each byte once.
  if (end_.size() <= 2 * kept_) return;
  dropped_ += end_.size() - kept_;
  end_.erase(0, end_.size() - kept_);
}

std::string ToolTranscript::text(std::vector<std::string_view> secrets) const {
  std::stable_sort(secrets.begin(), secrets.end(),
                   [](auto one, auto other) { return one.size() > other.size(); });
  const std::size_t longest = secrets.empty() ? 0 : secrets.front().size();
  const std::size_t surplus = end_.size() - std::min(end_.size(), kept_);
  const std::size_t leftOut = dropped_ + surplus;
  std::string text;
  if (leftOut == 0) {
    WipedText all;
    all->reserve(beginning_.size() + end_.size());
    all->append(beginning_).append(end_);
    text = masked(*all, secrets);
  } else {
    text = masked(beginning_, secrets);
    std::string end = masked(std::string_view(end_).substr(surplus), secrets);
    shortenEnd(text, longest);
    shortenBeginning(end, longest);
    text.append("\n[about ").append(std::to_string(leftOut)).append(" bytes left out]\n").append(end);
  }
  std::erase(text, '\r');
  return trimmingWhitespaceAndNewlines(text);
}

}  // namespace molvane
