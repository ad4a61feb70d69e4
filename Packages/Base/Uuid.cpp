#include "Base/Uuid.hpp"

#include <uuid/uuid.h>

namespace molvane {

namespace {
constexpr std::size_t kTextLength = 36;
}

Uuid Uuid::random() {
  Uuid uuid;
  uuid_generate_random(uuid.bytes_.data());
  return uuid;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
  // The library stops at a NUL, so the length is looked at first.
  if (text.size() != kTextLength) return std::nullopt;
  Uuid uuid;
  if (uuid_parse(std::string(text).c_str(), uuid.bytes_.data()) != 0) return std::nullopt;
  return uuid;
}

std::string Uuid::text() const {
  std::array<char, kTextLength + 1> text{};
  uuid_unparse_upper(bytes_.data(), text.data());
  return text.data();
}

}  // namespace molvane
