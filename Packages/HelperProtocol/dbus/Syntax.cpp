#include "HelperProtocol/dbus/Syntax.hpp"

#include "Base/Ascii.hpp"
#include "Base/Utf8.hpp"

namespace molvane::dbus {

namespace {

constexpr std::size_t kMaxNameLength = 255;
constexpr int kMaxArrays = 32;
constexpr int kMaxStructs = 32;

constexpr bool isWordCharacter(char c) noexcept { return isAsciiLetter(c) || isAsciiDigit(c) || c == '_'; }

/// What the elements of a dotted name may look like.
struct Elements {
  bool hyphen;
  bool leadingDigit;
  std::size_t atLeast;
};

bool isDotted(std::string_view text, Elements rule) noexcept {
  std::size_t elements = 1;
  bool atStart = true;
  for (const char c : text) {
    if (c == '.') {
      if (atStart) return false;
      ++elements;
      atStart = true;
      continue;
    }
    if (!isWordCharacter(c) && !(rule.hyphen && c == '-')) return false;
    if (atStart && !rule.leadingDigit && isAsciiDigit(c)) return false;
    atStart = false;
  }
  return !atStart && elements >= rule.atLeast && text.size() <= kMaxNameLength;
}

constexpr bool isBasicType(char c) noexcept {
  return std::string_view("ybnqiuxtdsogh").find(c) != std::string_view::npos;
}

/// Reads types off the head of a signature, keeping count of how deep it is.
class TypeParser {
 public:
  explicit TypeParser(std::string_view signature) noexcept : rest_(signature) {}

  [[nodiscard]] std::string_view rest() const noexcept { return rest_; }

  bool completeType() noexcept {
    if (rest_.empty()) return false;
    const char type = take();
    if (isBasicType(type) || type == 'v') return true;
    if (type == 'a') return array();
    if (type == '(') return structure();
    return false;
  }

 private:
  char take() noexcept {
    const char c = rest_.front();
    rest_.remove_prefix(1);
    return c;
  }

  bool array() noexcept {
    if (++arrays_ > kMaxArrays || rest_.empty()) return false;
    const bool valid = rest_.front() == '{' ? dictionaryEntry() : completeType();
    --arrays_;
    return valid;
  }

  bool structure() noexcept {
    if (++structs_ > kMaxStructs) return false;
    do {
      if (!completeType()) return false;
      if (rest_.empty()) return false;
    } while (rest_.front() != ')');
    take();
    --structs_;
    return true;
  }

  bool dictionaryEntry() noexcept {
    take();
    if (++structs_ > kMaxStructs) return false;
    if (rest_.empty() || !isBasicType(take())) return false;
    if (!completeType() || rest_.empty() || take() != '}') return false;
    --structs_;
    return true;
  }

  std::string_view rest_;
  int arrays_ = 0;
  int structs_ = 0;
};

}  // namespace

bool isObjectPath(std::string_view text) noexcept {
  if (text.empty() || text.front() != '/') return false;
  if (text.size() == 1) return true;
  bool afterSlash = true;
  for (const char c : text.substr(1)) {
    if (c == '/') {
      if (afterSlash) return false;
      afterSlash = true;
      continue;
    }
    if (!isWordCharacter(c)) return false;
    afterSlash = false;
  }
  return !afterSlash;
}

bool isInterfaceName(std::string_view text) noexcept {
  return isDotted(text, {.hyphen = false, .leadingDigit = false, .atLeast = 2});
}

bool isMemberName(std::string_view text) noexcept {
  return text.find('.') == std::string_view::npos &&
         isDotted(text, {.hyphen = false, .leadingDigit = false, .atLeast = 1});
}

bool isBusName(std::string_view text) noexcept {
  if (text.empty() || text.size() > kMaxNameLength) return false;
  if (text.front() == ':')
    return isDotted(text.substr(1), {.hyphen = true, .leadingDigit = true, .atLeast = 2});
  return isDotted(text, {.hyphen = true, .leadingDigit = false, .atLeast = 2});
}

bool isSignature(std::string_view text) noexcept {
  if (text.size() > kMaxNameLength) return false;
  TypeParser parser(text);
  while (!parser.rest().empty()) {
    if (!parser.completeType()) return false;
  }
  return true;
}

std::size_t leadingTypeLength(std::string_view signature) noexcept {
  TypeParser parser(signature);
  return parser.completeType() ? signature.size() - parser.rest().size() : 0;
}

bool isText(std::string_view text) noexcept {
  return text.find('\0') == std::string_view::npos && isValidUtf8(text);
}

}  // namespace molvane::dbus
