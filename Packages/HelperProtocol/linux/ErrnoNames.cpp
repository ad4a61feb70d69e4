#include "HelperProtocol/dbus/ErrnoNames.hpp"

#include <cstring>

namespace molvane::dbus {

namespace {

/// The kernel keeps errno values below this, so that they can be told from addresses.
constexpr int kErrnoEnd = 4096;

}  // namespace

std::string_view errnoName(int value) noexcept {
  const char* name = value > 0 && value < kErrnoEnd ? ::strerrorname_np(value) : nullptr;
  return name != nullptr ? name : std::string_view();
}

std::optional<int> errnoOfName(std::string_view name) noexcept {
  if (name.empty()) return std::nullopt;
  for (int value = 1; value < kErrnoEnd; ++value) {
    if (errnoName(value) == name) return value;
  }
  return std::nullopt;
}

}  // namespace molvane::dbus
