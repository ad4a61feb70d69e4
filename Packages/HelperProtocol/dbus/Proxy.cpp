#include "HelperProtocol/dbus/Proxy.hpp"

#include <tuple>
#include <type_traits>

#include "HelperProtocol/dbus/Channel.hpp"
#include "HelperProtocol/dbus/Values.hpp"

namespace molvane::dbus {

namespace {

/// What a reply carries in place of its value when there is an error.
template <typename Value>
Value failureValue() {
  return Value{};
}

template <>
std::int64_t failureValue() {
  return -1;
}

template <typename Value>
void readValues(Decoder& decoder, Value& value) {
  read(decoder, value);
}

template <typename Value>
void readValues(Decoder& decoder, Value& value, OptionalError& /*error*/) {
  read(decoder, value);
}

/// Alone, a value is absent only beside an error.
template <typename Value>
void readValues(Decoder& decoder, std::optional<Value>& value, OptionalError& /*error*/) {
  read(decoder, value.emplace());
}

template <typename First, typename Second>
void readValues(Decoder& decoder, First& first, Second& second, OptionalError& /*error*/) {
  read(decoder, first);
  read(decoder, second);
}

template <typename... Values, typename... Arguments>
void call(Channel& channel, const Method& method, const Reply<Values...>& reply,
          const Arguments&... arguments) {
  std::tuple<Values...> values;
  const OptionalError error = channel.call(
      method, [&]([[maybe_unused]] Encoder& body) { (write(body, arguments), ...); },
      [&](Decoder& body) { std::apply([&](Values&... value) { readValues(body, value...); }, values); });
  if (!error) {
    std::apply(reply, std::move(values));
  } else if constexpr ((std::is_same_v<Values, OptionalError> || ...)) {
    std::tuple<Values...> failure{failureValue<Values>()...};
    std::get<OptionalError>(failure) = error;
    std::apply(reply, std::move(failure));
  } else {
    throw RemoteError(*error);
  }
}

}  // namespace

Proxy::Proxy(const std::string& socketPath) : channel_(std::make_unique<Channel>(socketPath)) {}
Proxy::~Proxy() = default;

void Proxy::ping(const Reply<std::string>& reply) { call(*channel_, kPing, reply); }

void Proxy::removeAllowedItem(const std::string& path, const Reply<bool, OptionalError>& reply) {
  call(*channel_, kRemoveAllowedItem, reply, path);
}

void Proxy::sizeOfAllowedDirectory(const std::string& path, const Reply<std::int64_t, OptionalError>& reply) {
  call(*channel_, kSizeOfAllowedDirectory, reply, path);
}

void Proxy::runMaintenanceTask(const std::string& taskID,
                               const Reply<bool, std::string, OptionalError>& reply) {
  call(*channel_, kRunMaintenanceTask, reply, taskID);
}

void Proxy::startDeviceJob(const Data& spec, const Reply<std::optional<std::string>, OptionalError>& reply) {
  call(*channel_, kStartDeviceJob, reply, spec);
}

void Proxy::deviceJobStatus(const std::string& jobID,
                            const Reply<std::optional<Data>, OptionalError>& reply) {
  call(*channel_, kDeviceJobStatus, reply, jobID);
}

void Proxy::cancelDeviceJob(const std::string& jobID, const Reply<bool>& reply) {
  call(*channel_, kCancelDeviceJob, reply, jobID);
}

void Proxy::removeApplication(const std::string& path, const Reply<bool, OptionalError>& reply) {
  call(*channel_, kRemoveApplication, reply, path);
}

void Proxy::installPackage(const std::string& path, const Reply<bool, std::string, OptionalError>& reply) {
  call(*channel_, kInstallPackage, reply, path);
}

void Proxy::installUnverifiedPackage(const std::string& path,
                                     const Reply<bool, std::string, OptionalError>& reply) {
  call(*channel_, kInstallUnverifiedPackage, reply, path);
}

void Proxy::installApplication(const std::string& path,
                               const Reply<bool, std::string, OptionalError>& reply) {
  call(*channel_, kInstallApplication, reply, path);
}

void Proxy::manageLocalAccount(
    const Data& operation,
    const Reply<std::optional<Data>, std::optional<std::string>, OptionalError>& reply) {
  call(*channel_, kManageLocalAccount, reply, operation);
}

void Proxy::applyCompanyAdmin(const Data& configuration,
                              const Reply<std::optional<Data>, OptionalError>& reply) {
  call(*channel_, kApplyCompanyAdmin, reply, configuration);
}

void Proxy::companyAdminPassword(
    const Reply<std::optional<std::string>, std::optional<std::string>, OptionalError>& reply) {
  call(*channel_, kCompanyAdminPassword, reply);
}

}  // namespace molvane::dbus
