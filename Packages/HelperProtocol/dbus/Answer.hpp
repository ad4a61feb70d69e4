#pragma once

#include <cstdint>
#include <string_view>
#include <utility>

#include "Base/NSError.hpp"
#include "HelperProtocol/dbus/BusClient.hpp"
#include "HelperProtocol/dbus/Message.hpp"

namespace molvane::dbus {

/// Writes the one answer to a call into a buffer. Each call begins the answer anew; the last one counts.
class Answer {
 public:
  /// `serial` is the answer's own. All three references must outlive the answer.
  Answer(Bytes& buffer, std::uint32_t serial, const Message& call, const BusClient& client) noexcept
      : buffer_(buffer), serial_(serial), call_(call), client_(client) {}

  /// Answers with values of the types `signature`, which `writeBody` writes to the Encoder& that it is given.
  template <typename WriteBody>
  void values(std::string_view signature, WriteBody&& writeBody) {
    MessageBuilder message(buffer_, header(MessageType::methodReturn, {}, signature));
    std::forward<WriteBody>(writeBody)(message.body());
    message.finish();
  }

  /// Answers with an error of the given name; `description` may be any text.
  void error(std::string_view name, std::string_view description);

  /// Answers with an error under the name that errorName gives it.
  void error(const NSError& error);

 private:
  [[nodiscard]] Header header(MessageType type, std::string_view errorName,
                              std::string_view signature) const noexcept;

  Bytes& buffer_;
  std::uint32_t serial_;
  const Message& call_;
  const BusClient& client_;
};

/// The error that a message of the type error carries: Answer::error undone. What came under a name that is
/// none of ours has that name as its domain and the code 0. Throws ProtocolError when the arguments are
/// malformed.
[[nodiscard]] NSError errorOf(const Message& message);

}  // namespace molvane::dbus
