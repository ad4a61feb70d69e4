#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "HelperProtocol/HelperXPCProtocol.hpp"
#include "HelperProtocol/dbus/Answer.hpp"
#include "HelperProtocol/dbus/Method.hpp"
#include "HelperProtocol/dbus/Names.hpp"
#include "HelperProtocol/dbus/Values.hpp"

namespace molvane::dbus {

/// One call on its way to the exported object and its answer on the way back.
class Call {
 public:
  Call(MolvaneHelperXPCProtocol& object, const Method& method, const Message& message, Answer& answer,
       BusClient& client) noexcept
      : object_(object), method_(method), message_(message), answer_(answer), client_(client) {}

  [[nodiscard]] const Message& message() const noexcept { return message_; }
  [[nodiscard]] BusClient& client() const noexcept { return client_; }

  /// Calls a method without an argument on the object, and answers with what it replied.
  template <typename... Values>
  void invoke(void (MolvaneHelperXPCProtocol::*method)(const Reply<Values...>&)) {
    message_.arguments().expectEnd();
    collect<Values...>([&](const Reply<Values...>& reply) { (object_.*method)(reply); });
  }

  /// The same for a method with one.
  template <typename Argument, typename... Values>
  void invoke(void (MolvaneHelperXPCProtocol::*method)(const Argument&, const Reply<Values...>&)) {
    Argument argument{};
    Decoder arguments = message_.arguments();
    read(arguments, argument);
    arguments.expectEnd();
    collect<Values...>([&](const Reply<Values...>& reply) { (object_.*method)(argument, reply); });
  }

  /// Answers with values that `writeBody` writes to the Encoder& that it is given.
  template <typename WriteBody>
  void succeed(WriteBody&& writeBody) {
    answer_.values(method_.out, std::forward<WriteBody>(writeBody));
  }

  void fail(std::string_view name, std::string_view description) { answer_.error(name, description); }

 private:
  template <typename... Values, typename Work>
  void collect(Work&& work) {
    std::optional<std::tuple<Values...>> values;
    std::optional<NSError> thrown;
    try {
      work([&values](Values... value) {
        if (!values) values.emplace(std::move(value)...);
      });
    } catch (...) {
      thrown = errorInFlight();
    }
    if (values) {
      std::apply([this](const auto&... value) { this->finish(value...); }, *values);
    } else if (thrown) {
      answer_.error(*thrown);
    } else {
      answer_.error(kNoReplyError, "The helper did not answer.");
    }
  }

  /// The exception that is being handled; std::bad_alloc is thrown on.
  static NSError errorInFlight();

  template <typename Value>
  void finish(const Value& value) {
    succeed([&](Encoder& body) { write(body, value); });
  }

  template <typename Value>
  void finish(const Value& value, const OptionalError& error) {
    if (error) return answer_.error(*error);
    finish(value);
  }

  /// Alone, a value is absent only beside an error.
  template <typename Value>
  void finish(const std::optional<Value>& value, const OptionalError& error) {
    if (error) return answer_.error(*error);
    if (!value) return answer_.error(kFailedError, "The helper answered neither a value nor an error.");
    finish(*value);
  }

  template <typename First, typename Second>
  void finish(const First& first, const Second& second, const OptionalError& error) {
    if (error) return answer_.error(*error);
    succeed([&](Encoder& body) {
      write(body, first);
      write(body, second);
    });
  }

  MolvaneHelperXPCProtocol& object_;
  const Method& method_;
  const Message& message_;
  Answer& answer_;
  BusClient& client_;
};

}  // namespace molvane::dbus
