#pragma once

#include <cstddef>
#include <string_view>

// The grammar of names and type signatures on the wire. Nothing here throws or allocates.
namespace molvane::dbus {

/// "/" or "/element/element" of letters, digits and underscores.
[[nodiscard]] bool isObjectPath(std::string_view text) noexcept;

/// Two or more elements of letters, digits and underscores joined by dots, none beginning with a digit; at
/// most 255 bytes. Error names have the same form.
[[nodiscard]] bool isInterfaceName(std::string_view text) noexcept;

/// One element of an interface name; at most 255 bytes.
[[nodiscard]] bool isMemberName(std::string_view text) noexcept;

/// A unique (":1.7") or well-known name of a connection; at most 255 bytes.
[[nodiscard]] bool isBusName(std::string_view text) noexcept;

/// Any number of complete types within the protocol's limits: 255 bytes, 32 arrays and 32 structures deep.
[[nodiscard]] bool isSignature(std::string_view text) noexcept;

/// Length of the complete type at the head of `signature`; 0 when there is none, or none that is well-formed.
[[nodiscard]] std::size_t leadingTypeLength(std::string_view signature) noexcept;

/// Well-formed UTF-8 without NUL: what a string on the wire can hold.
[[nodiscard]] bool isText(std::string_view text) noexcept;

}  // namespace molvane::dbus
