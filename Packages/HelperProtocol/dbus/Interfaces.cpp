#include "HelperProtocol/dbus/Interfaces.hpp"

#include <array>

#include "HelperProtocol/dbus/MachineID.hpp"
#include "HelperProtocol/dbus/Syntax.hpp"

namespace molvane::dbus {

namespace {

using Helper = MolvaneHelperXPCProtocol;

constexpr std::array kHelperMethods = {
    ExportedMethod{kPing, [](Call& call) { call.invoke(&Helper::ping); }},
    ExportedMethod{kRemoveAllowedItem, [](Call& call) { call.invoke(&Helper::removeAllowedItem); }},
    ExportedMethod{kSizeOfAllowedDirectory, [](Call& call) { call.invoke(&Helper::sizeOfAllowedDirectory); }},
    ExportedMethod{kRunMaintenanceTask, [](Call& call) { call.invoke(&Helper::runMaintenanceTask); }},
    ExportedMethod{kStartDeviceJob, [](Call& call) { call.invoke(&Helper::startDeviceJob); }},
    ExportedMethod{kDeviceJobStatus, [](Call& call) { call.invoke(&Helper::deviceJobStatus); }},
    ExportedMethod{kCancelDeviceJob, [](Call& call) { call.invoke(&Helper::cancelDeviceJob); }},
    ExportedMethod{kRemoveApplication, [](Call& call) { call.invoke(&Helper::removeApplication); }},
    ExportedMethod{kInstallPackage, [](Call& call) { call.invoke(&Helper::installPackage); }},
    ExportedMethod{kInstallUnverifiedPackage,
                   [](Call& call) { call.invoke(&Helper::installUnverifiedPackage); }},
    ExportedMethod{kInstallApplication, [](Call& call) { call.invoke(&Helper::installApplication); }},
    ExportedMethod{kManageLocalAccount, [](Call& call) { call.invoke(&Helper::manageLocalAccount); }},
    ExportedMethod{kApplyCompanyAdmin, [](Call& call) { call.invoke(&Helper::applyCompanyAdmin); }},
    ExportedMethod{kCompanyAdminPassword, [](Call& call) { call.invoke(&Helper::companyAdminPassword); }},
};

void sayHello(Call& call) {
  BusClient& client = call.client();
  if (client.hasSaidHello) return call.fail(kFailedError, "Hello has been said before.");
  client.hasSaidHello = true;
  call.succeed([&](Encoder& body) { body.string(client.uniqueName); });
}

/// A match rule chooses signals, and no signal is ever sent.
void promiseNothing(Call& call) {
  Decoder arguments = call.message().arguments();
  arguments.string();
  arguments.expectEnd();
  call.succeed([](Encoder&) {});
}

/// The owner of the name that a call asks about; empty when it has no owner.
std::string_view namedOwner(Call& call) {
  Decoder arguments = call.message().arguments();
  const std::string_view name = arguments.string();
  arguments.expectEnd();
  return call.client().ownerOf(name);
}

void tellNameOwner(Call& call) {
  const std::string_view owner = namedOwner(call);
  if (owner.empty()) return call.fail(kNameHasNoOwnerError, "No connection here has that name.");
  call.succeed([&](Encoder& body) { body.string(owner); });
}

void tellWhetherNameHasOwner(Call& call) {
  const bool owned = !namedOwner(call).empty();
  call.succeed([&](Encoder& body) { body.boolean(owned); });
}

void listNames(Call& call) {
  call.succeed([&](Encoder& body) {
    const Encoder::Array names = body.beginArray(4);
    for (const std::string_view name :
         {kBusName, kHelperBusName, kHelperUniqueName, std::string_view(call.client().uniqueName)}) {
      body.string(name);
    }
    body.endArray(names);
  });
}

/// Every service of the connection is running already.
void startService(Call& call) {
  constexpr std::uint32_t kRunsAlready = 2;
  Decoder arguments = call.message().arguments();
  const std::string_view name = arguments.string();
  arguments.uint32();
  arguments.expectEnd();
  if (call.client().ownerOf(name).empty()) {
    return call.fail(kServiceUnknownError, "No service here has the name " + std::string(name));
  }
  call.succeed([](Encoder& body) { body.uint32(kRunsAlready); });
}

void ping(Call& call) {
  call.succeed([](Encoder&) {});
}

void tellMachineID(Call& call) {
  const std::optional<std::string> id = machineID();
  if (!id) return call.fail(kFileNotFoundError, "This machine has no identifier.");
  call.succeed([&](Encoder& body) { body.string(*id); });
}

void introspect(Call& call) {
  const std::string xml = introspectionXML(call.message().path);
  call.succeed([&](Encoder& body) { body.string(xml); });
}

/// The interface that a call about properties names; nothing, and the call has failed, when there is none
/// such.
std::optional<std::string_view> namedInterface(Call& call, Decoder& arguments) {
  const std::string_view name = arguments.string();
  for (const Interface& interface : interfacesAt(call.message().path)) {
    if (interface.name == name) return name;
  }
  call.fail(kUnknownInterfaceError, "No interface " + std::string(name));
  return std::nullopt;
}

void refuseProperty(Call& call) {
  Decoder arguments = call.message().arguments();
  if (!namedInterface(call, arguments)) return;
  call.fail(kUnknownPropertyError, "No property " + std::string(arguments.string()));
}

void tellNoProperties(Call& call) {
  Decoder arguments = call.message().arguments();
  const auto name = namedInterface(call, arguments);
  arguments.expectEnd();
  if (!name) return;
  call.succeed([](Encoder& body) { body.endArray(body.beginArray(8)); });
}

constexpr std::array kBusMethods = {
    ExportedMethod{{"Hello", "", "s", {}, {"name"}}, sayHello},
    ExportedMethod{{"AddMatch", "s", "", {"rule"}, {}}, promiseNothing},
    ExportedMethod{{"RemoveMatch", "s", "", {"rule"}, {}}, promiseNothing},
    ExportedMethod{{"GetNameOwner", "s", "s", {"name"}, {"owner"}}, tellNameOwner},
    ExportedMethod{{"NameHasOwner", "s", "b", {"name"}, {"owned"}}, tellWhetherNameHasOwner},
    ExportedMethod{{"ListNames", "", "as", {}, {"names"}}, listNames},
    ExportedMethod{{"StartServiceByName", "su", "u", {"name", "flags"}, {"result"}}, startService},
};

constexpr std::array kPeerMethods = {
    ExportedMethod{{"Ping", "", "", {}, {}}, ping},
    ExportedMethod{{"GetMachineId", "", "s", {}, {"machineID"}}, tellMachineID},
};

constexpr std::array kIntrospectableMethods = {
    ExportedMethod{{"Introspect", "", "s", {}, {"xml"}}, introspect},
};

constexpr std::array kPropertiesMethods = {
    ExportedMethod{{"Get", "ss", "v", {"interface", "property"}, {"value"}}, refuseProperty},
    ExportedMethod{{"GetAll", "s", "a{sv}", {"interface"}, {"properties"}}, tellNoProperties},
    ExportedMethod{{"Set", "ssv", "", {"interface", "property", "value"}, {}}, refuseProperty},
};

constexpr Interface kPeer{kPeerInterface, kPeerMethods};
constexpr Interface kIntrospectable{kIntrospectableInterface, kIntrospectableMethods};

constexpr std::array kAtHelper = {Interface{kHelperInterface, kHelperMethods}, kPeer, kIntrospectable,
                                  Interface{kPropertiesInterface, kPropertiesMethods}};
constexpr std::array kAtBus = {Interface{kBusInterface, kBusMethods}, kPeer, kIntrospectable};
constexpr std::array kAboveHelper = {kPeer, kIntrospectable};
constexpr std::array kElsewhere = {kPeer};

/// Whether the helper's object lies somewhere below `path`.
bool isAboveHelper(std::string_view path) noexcept {
  return path == "/" || (kHelperPath.starts_with(path) && kHelperPath.substr(path.size()).starts_with('/'));
}

/// The next element of the helper's path below `path`; empty when there is none.
std::string_view childOf(std::string_view path) noexcept {
  if (!isAboveHelper(path)) return {};
  const std::string_view below = kHelperPath.substr(path == "/" ? 1 : path.size() + 1);
  return below.substr(0, below.find('/'));
}

void appendArguments(std::string& xml, std::string_view types, std::span<const std::string_view> names,
                     std::string_view direction) {
  for (const std::string_view name : names) {
    const std::size_t length = leadingTypeLength(types);
    if (length == 0) return;
    xml.append("   <arg type=\"").append(types.substr(0, length)).append("\" name=\"").append(name);
    xml.append("\" direction=\"").append(direction).append("\"/>\n");
    types.remove_prefix(length);
  }
}

void appendMethod(std::string& xml, const Method& method) {
  xml.append("  <method name=\"").append(method.member).append("\">\n");
  appendArguments(xml, method.in, method.inNames, "in");
  appendArguments(xml, method.out, method.outNames, "out");
  xml.append("  </method>\n");
}

}  // namespace

std::span<const Interface> interfacesAt(std::string_view path) noexcept {
  if (path == kHelperPath) return kAtHelper;
  if (path == kBusPath) return kAtBus;
  if (isAboveHelper(path)) return kAboveHelper;
  return kElsewhere;
}

bool existsAt(std::string_view path) noexcept {
  return path == kHelperPath || path == kBusPath || isAboveHelper(path);
}

std::string introspectionXML(std::string_view path) {
  std::string xml =
      "<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\"\n"
      "\"http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd\">\n"
      "<node>\n";
  for (const Interface& interface : interfacesAt(path)) {
    xml.append(" <interface name=\"").append(interface.name).append("\">\n");
    for (const ExportedMethod& exported : interface.methods) appendMethod(xml, exported.method);
    xml.append(" </interface>\n");
  }
  if (const std::string_view child = childOf(path); !child.empty()) {
    xml.append(" <node name=\"").append(child).append("\"/>\n");
  }
  xml.append("</node>\n");
  return xml;
}

}  // namespace molvane::dbus
