#pragma once

#include <string_view>

namespace molvane::dbus {

/// Where the helper listens.
inline constexpr std::string_view kSocketPath = "/run/com.molvane.helper.sock";

inline constexpr std::string_view kHelperPath = "/com/molvane/helper";
inline constexpr std::string_view kHelperInterface = "com.molvane.helper";

/// The names that the helper and the bus itself have for a client that takes its connection for a bus. The
/// clients' own unique names count from 1.
inline constexpr std::string_view kHelperBusName = "com.molvane.helper";
inline constexpr std::string_view kHelperUniqueName = ":1.0";
inline constexpr std::string_view kBusName = "org.freedesktop.DBus";

inline constexpr std::string_view kBusPath = "/org/freedesktop/DBus";
inline constexpr std::string_view kBusInterface = "org.freedesktop.DBus";
inline constexpr std::string_view kPeerInterface = "org.freedesktop.DBus.Peer";
inline constexpr std::string_view kIntrospectableInterface = "org.freedesktop.DBus.Introspectable";
inline constexpr std::string_view kPropertiesInterface = "org.freedesktop.DBus.Properties";

/// The family that the protocol's own errors belong to.
inline constexpr std::string_view kBusErrorPrefix = "org.freedesktop.DBus.Error.";

inline constexpr std::string_view kFailedError = "org.freedesktop.DBus.Error.Failed";
inline constexpr std::string_view kNoMemoryError = "org.freedesktop.DBus.Error.NoMemory";
inline constexpr std::string_view kNoReplyError = "org.freedesktop.DBus.Error.NoReply";
inline constexpr std::string_view kLimitsExceededError = "org.freedesktop.DBus.Error.LimitsExceeded";
inline constexpr std::string_view kFileNotFoundError = "org.freedesktop.DBus.Error.FileNotFound";
inline constexpr std::string_view kInvalidArgsError = "org.freedesktop.DBus.Error.InvalidArgs";
inline constexpr std::string_view kNameHasNoOwnerError = "org.freedesktop.DBus.Error.NameHasNoOwner";
inline constexpr std::string_view kServiceUnknownError = "org.freedesktop.DBus.Error.ServiceUnknown";
inline constexpr std::string_view kUnknownObjectError = "org.freedesktop.DBus.Error.UnknownObject";
inline constexpr std::string_view kUnknownInterfaceError = "org.freedesktop.DBus.Error.UnknownInterface";
inline constexpr std::string_view kUnknownMethodError = "org.freedesktop.DBus.Error.UnknownMethod";
inline constexpr std::string_view kUnknownPropertyError = "org.freedesktop.DBus.Error.UnknownProperty";

}  // namespace molvane::dbus
