#include "HelperKit/Accounts/PromptLine.hpp"

#include "Base/Characters.hpp"
#include "Base/Text.hpp"
#include "Base/Utf8.hpp"
#include "Base/Wipe.hpp"

namespace molvane {

namespace {

constexpr std::size_t kLongestSequence = 4;  // bytes of one scalar

/// How many bytes at the end may be the beginning of a scalar that goes on in the next piece.
std::size_t unfinishedBytes(std::string_view bytes) {
  for (std::size_t count = 1; count < kLongestSequence && count <= bytes.size(); ++count) {
    const auto lead = static_cast<unsigned char>(bytes[bytes.size() - count]);
    if (lead < 0x80) return 0;
    if (lead < 0xC0) continue;
    const LeadingScalar scalar = leadingScalar(bytes.substr(bytes.size() - count));
    const std::size_t wanted = lead < 0xE0 ? 2U : lead < 0xF0 ? 3U : 4U;
    return !scalar.valid && scalar.length == count && count < wanted ? count : 0;
  }
  return 0;
}

/// The end of `bytes` that decides what the last line is; all of it where that is not plain to see. Keeps a
/// flood of lines cheap.
std::string_view lastLines(std::string_view bytes) {
  const std::size_t last = bytes.find_last_not_of("\r\n");
  if (last == std::string_view::npos || bytes[last] <= ' ' || bytes[last] > '~') return bytes;
  const std::size_t newline = bytes.rfind('\n', last);
  return newline == std::string_view::npos ? bytes : bytes.substr(newline);
}

}  // namespace

PromptLine::~PromptLine() { forget(); }

void PromptLine::add(std::string_view bytes) {
  std::string joined;
  if (!cutOff_.empty()) {
    joined = cutOff_.append(bytes);
    bytes = joined;
  }
  bytes = lastLines(bytes);
  const std::size_t whole = bytes.size() - unfinishedBytes(bytes);
  const Utf8Scalars scalars(bytes.substr(0, whole));
  for (auto at = scalars.begin(); at != scalars.end(); ++at) addScalar(*at, at.bytes());
  cutOff_ = bytes.substr(whole);
  wipe(joined);
}

void PromptLine::addScalar(char32_t scalar, std::string_view itsBytes) {
  if (isNewline(scalar)) {
    ended_ = true;
    return;
  }
  if (ended_) {
    ended_ = false;
    tooLong_ = false;
    lastVisible_ = 0;
    line_.clear();
  }
  if (!isWhitespace(scalar)) lastVisible_ = scalar;
  tooLong_ = tooLong_ || line_.size() + itsBytes.size() > kLongest;
  if (!tooLong_) appendWiping(line_, itsBytes);
}

std::optional<std::string> PromptLine::asking() const {
  if (lastVisible_ != ':' || tooLong_ || !cutOff_.empty()) return std::nullopt;
  std::string lower = lowercased(line_);
  if (lower.find("password") == std::string::npos) return std::nullopt;
  return lower;
}

void PromptLine::forget() {
  wipe(cutOff_);
  wipe(line_);
  tooLong_ = false;
  ended_ = false;
  lastVisible_ = 0;
}

}  // namespace molvane
