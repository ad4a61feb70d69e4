#pragma once

#include <span>
#include <string>
#include <string_view>

#include "HelperProtocol/dbus/Call.hpp"
#include "HelperProtocol/dbus/Method.hpp"

namespace molvane::dbus {

/// A method and what carries it out.
struct ExportedMethod {
  Method method;
  void (*carryOut)(Call& call);
};

struct Interface {
  std::string_view name;
  std::span<const ExportedMethod> methods;
};

/// The interfaces of the object at `path`. Whatever the path, Peer is among them.
[[nodiscard]] std::span<const Interface> interfacesAt(std::string_view path) noexcept;

/// Whether there is an object at `path`, or below it.
[[nodiscard]] bool existsAt(std::string_view path) noexcept;

/// What the object at `path` says about itself, in the protocol's XML: its interfaces, and the node below it
/// if there is one.
[[nodiscard]] std::string introspectionXML(std::string_view path);

}  // namespace molvane::dbus
