#pragma once

#include <stdexcept>

namespace molvane::dbus {

/// The other end broke the rules of the wire: a malformed message, a failed handshake, a time that ran out.
/// The connection cannot go on after it. what() is for the log, in plain words.
class ProtocolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A message that is being written grew beyond what the wire carries. Nothing of it was sent.
class MessageTooLarge : public std::length_error {
 public:
  using std::length_error::length_error;
};

}  // namespace molvane::dbus
