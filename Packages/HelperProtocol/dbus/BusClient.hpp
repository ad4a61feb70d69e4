#pragma once

#include <string>
#include <string_view>

#include "HelperProtocol/dbus/Message.hpp"

namespace molvane::dbus {

/// A connection's client, as the bus knows it for which some clients take the connection. On that bus are the
/// bus itself, the helper and this one client.
struct BusClient {
  std::string uniqueName;     ///< such as ":1.7"; no other connection's
  bool hasSaidHello = false;  ///< takes the connection for a bus; answers say who they are from and for

  /// Who owns `name`; empty when nobody does.
  [[nodiscard]] std::string_view ownerOf(std::string_view name) const noexcept;
};

/// Whether a call to `destination` is for the helper or the bus. Without a destination every call is.
[[nodiscard]] bool isServed(std::string_view destination) noexcept;

/// Who answers `call`: the bus or the helper, by its unique name.
[[nodiscard]] std::string_view senderOfAnswerTo(const Message& call) noexcept;

}  // namespace molvane::dbus
