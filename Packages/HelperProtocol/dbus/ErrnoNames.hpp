#pragma once

#include <optional>
#include <string_view>

namespace molvane::dbus {

/// The host's name of an errno value, such as "EACCES"; empty for a value that it has no name for.
[[nodiscard]] std::string_view errnoName(int value) noexcept;

/// The value of which errnoName is `name`.
[[nodiscard]] std::optional<int> errnoOfName(std::string_view name) noexcept;

}  // namespace molvane::dbus
