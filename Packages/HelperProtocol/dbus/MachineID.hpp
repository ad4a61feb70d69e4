#pragma once

#include <optional>
#include <string>

namespace molvane::dbus {

/// The machine's identifier, 32 hexadecimal digits; nothing when it has none that can be read.
[[nodiscard]] std::optional<std::string> machineID();

}  // namespace molvane::dbus
