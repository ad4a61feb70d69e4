#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "HelperProtocol/HelperXPCProtocol.hpp"
#include "HelperProtocol/dbus/BusClient.hpp"
#include "HelperProtocol/dbus/Message.hpp"

namespace molvane::dbus {

/// Answers the calls of one connection on behalf of an object.
///
/// The object stands at kHelperPath with the interface kHelperInterface. Around it stands what clients expect
/// of any connection: org.freedesktop.DBus.Peer everywhere, Introspectable on the object and the paths above
/// it, Properties (there are none). For clients that take the connection for a bus there are
/// org.freedesktop.DBus with the methods that their libraries call, and a unique name. There are no signals,
/// so nothing is kept of what a client asks to be told of.
///
/// One thread at a time may use it.
class Exporter {
 public:
  /// `uniqueName` is what Hello answers, such as ":1.7".
  Exporter(std::shared_ptr<MolvaneHelperXPCProtocol> object, std::string uniqueName);

  /// Carries out what `message` asks for and writes the answer to `answer`; false when none is to be sent,
  /// and then the content of `answer` means nothing. Whatever the object throws becomes an error, and so does
  /// its silence. Throws only std::bad_alloc, when not even an error can be written.
  [[nodiscard]] bool handle(const Message& message, Bytes& answer);

  /// Answers in the same way that a message is larger than a request may be.
  [[nodiscard]] bool refuse(const Frame& oversized, Bytes& answer);

 private:
  std::uint32_t nextSerial() noexcept;

  std::shared_ptr<MolvaneHelperXPCProtocol> object_;
  BusClient client_;
  std::uint32_t serial_ = 0;
};

}  // namespace molvane::dbus
