#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>

#include "HelperProtocol/Connection.hpp"
#include "HelperProtocol/HelperXPCProtocol.hpp"
#include "molvanectl/Console.hpp"
#include "molvanectl/Output.hpp"

namespace molvane::ctl {

/// Connects to the helper that listens at a socket. Throws ConnectionError with a sentence for the person.
using ConnectionFactory =
    std::function<std::unique_ptr<MolvaneHelperXPCProtocol>(const std::string& socketPath)>;

/// What a running command works with: the output, the console, and the helper, connected to when first asked.
class Session {
 public:
  /// `output` and `console` must outlive this object.
  Session(Output& output, Console& console, ConnectionFactory connect, std::string socketPath);

  [[nodiscard]] Output& output() { return output_; }
  [[nodiscard]] Console& console() { return console_; }

  /// Whether a connection has been made, and whether the helper has answered anything on it.
  [[nodiscard]] bool connected() const { return helper_ != nullptr; }
  [[nodiscard]] bool answered() const { return answered_; }

  /// Calls a method of the helper and returns what it answered with, as a tuple. Throws ConnectionError.
  template <typename... Values>
  std::tuple<Values...> ask(void (MolvaneHelperXPCProtocol::*method)(const Reply<Values...>&)) {
    return answerTo<Values...>([&](const Reply<Values...>& reply) { (helper().*method)(reply); });
  }

  template <typename Argument, typename... Values>
  std::tuple<Values...> ask(void (MolvaneHelperXPCProtocol::*method)(const Argument&,
                                                                     const Reply<Values...>&),
                            const std::type_identity_t<Argument>& argument) {
    return answerTo<Values...>([&](const Reply<Values...>& reply) { (helper().*method)(argument, reply); });
  }

 private:
  MolvaneHelperXPCProtocol& helper();

  template <typename... Values, typename Call>
  std::tuple<Values...> answerTo(const Call& call) {
    std::optional<std::tuple<Values...>> answer;
    call([&answer](Values... values) { answer.emplace(std::move(values)...); });
    if (!answer) throw ConnectionError("the call ended without an answer");
    answered_ = true;
    return std::move(*answer);
  }

  Output& output_;
  Console& console_;
  ConnectionFactory connect_;
  std::string socketPath_;
  std::unique_ptr<MolvaneHelperXPCProtocol> helper_;
  bool answered_ = false;
};

/// The error of a reply that refuses; where the helper gave none, one that says so.
[[nodiscard]] NSError refusal(const OptionalError& error);

}  // namespace molvane::ctl
