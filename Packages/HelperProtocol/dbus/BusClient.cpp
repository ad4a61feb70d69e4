#include "HelperProtocol/dbus/BusClient.hpp"

#include "HelperProtocol/dbus/Names.hpp"

namespace molvane::dbus {

namespace {

bool isHelper(std::string_view name) noexcept { return name == kHelperBusName || name == kHelperUniqueName; }

}  // namespace

std::string_view BusClient::ownerOf(std::string_view name) const noexcept {
  if (isHelper(name)) return kHelperUniqueName;
  if (name == kBusName) return kBusName;
  return name == uniqueName ? std::string_view(uniqueName) : std::string_view();
}

bool isServed(std::string_view destination) noexcept {
  return destination.empty() || destination == kBusName || isHelper(destination);
}

std::string_view senderOfAnswerTo(const Message& call) noexcept {
  if (call.destination.empty()) return call.path == kBusPath ? kBusName : kHelperUniqueName;
  return isHelper(call.destination) ? kHelperUniqueName : kBusName;
}

}  // namespace molvane::dbus
