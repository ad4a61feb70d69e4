#pragma once

#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <system_error>

#include "HelperProtocol/Connection.hpp"
#include "HelperProtocol/dbus/Answer.hpp"
#include "HelperProtocol/dbus/MessageStream.hpp"
#include "HelperProtocol/dbus/Method.hpp"
#include "HelperProtocol/dbus/Names.hpp"
#include "HelperProtocol/dbus/ProtocolError.hpp"
#include "Platform/FileDescriptor.hpp"

namespace molvane::dbus {

/// The client's end of one connection: calls go out, answers come in, one at a time. Once something went
/// wrong with the connection it stays so. One thread at a time may use it.
class Channel {
 public:
  /// Connects and shakes hands. Throws ConnectionError.
  explicit Channel(const std::string& socketPath);

  /// Calls `method` with what `writeArguments` writes to its Encoder&, and hands the answer's values to
  /// `readValues` as a Decoder&, or answers with the error that came in their place. Throws ConnectionError.
  template <typename WriteArguments, typename ReadValues>
  [[nodiscard]] std::optional<NSError> call(const Method& method, WriteArguments&& writeArguments,
                                            ReadValues&& readValues) {
    try {
      MessageBuilder request(request_, header(method));
      writeArguments(request.body());
      request.finish();
    } catch (const MessageTooLarge&) {
      return tooLarge();
    }
    if (request_.size() > kMaxRequestSize) return tooLarge();
    return guarded([&]() -> std::optional<NSError> {
      const Message answer = exchange();
      if (answer.type == MessageType::error) return errorOf(answer);
      expectTypes(answer, method);
      Decoder values = answer.arguments();
      readValues(values);
      values.expectEnd();
      return std::nullopt;
    });
  }

 private:
  [[nodiscard]] Header header(const Method& method);
  [[nodiscard]] static NSError tooLarge();
  void shakeHands(Deadline deadline);
  Message exchange();
  static void expectTypes(const Message& answer, const Method& method);

  /// Does `work` on the connection; what goes wrong with it is a ConnectionError, now and ever after.
  template <typename Work>
  auto guarded(Work&& work) -> decltype(work()) {
    if (!failure_.empty()) throw ConnectionError(failure_);
    try {
      return work();
    } catch (const ProtocolError& error) {
      fail(error.what());
    } catch (const std::system_error& error) {
      fail(error.what());
    } catch (const std::bad_alloc&) {
      fail("out of memory");
    }
  }
  [[noreturn]] void fail(const std::string& why);

  FileDescriptor socket_;
  MessageStream stream_;
  Bytes request_;
  std::uint32_t serial_ = 0;
  std::string failure_;
};

}  // namespace molvane::dbus
