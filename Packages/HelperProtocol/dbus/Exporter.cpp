#include "HelperProtocol/dbus/Exporter.hpp"

#include <cerrno>
#include <new>
#include <utility>

#include "HelperProtocol/dbus/Answer.hpp"
#include "HelperProtocol/dbus/Call.hpp"
#include "HelperProtocol/dbus/Interfaces.hpp"
#include "HelperProtocol/dbus/Limits.hpp"
#include "HelperProtocol/dbus/ProtocolError.hpp"

namespace molvane::dbus {

namespace {

/// Answers why nothing on this connection carries out `message`.
void refuse(const Message& message, bool interfaceExists, Answer& answer) {
  if (!existsAt(message.path)) {
    answer.error(kUnknownObjectError, "No object at " + std::string(message.path));
  } else if (!interfaceExists && !message.interface.empty()) {
    answer.error(kUnknownInterfaceError, "No interface " + std::string(message.interface));
  } else {
    answer.error(kUnknownMethodError, "No method " + std::string(message.member));
  }
}

/// The method that `message` means. Without an interface, the first one of that name.
const ExportedMethod* find(const Message& message, Answer& answer) {
  if (!isServed(message.destination)) {
    answer.error(kServiceUnknownError, "No service here has the name " + std::string(message.destination));
    return nullptr;
  }
  bool interfaceExists = false;
  for (const Interface& interface : interfacesAt(message.path)) {
    if (!message.interface.empty() && message.interface != interface.name) continue;
    interfaceExists = true;
    for (const ExportedMethod& exported : interface.methods) {
      if (exported.method.member == message.member) return &exported;
    }
  }
  refuse(message, interfaceExists, answer);
  return nullptr;
}

}  // namespace

NSError Call::errorInFlight() {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    return nsErrorOfCurrentException();
  } catch (...) {
    return NSError{std::string(kPOSIXErrorDomain), EIO, posixErrorDescription(EIO)};
  }
}

Exporter::Exporter(std::shared_ptr<MolvaneHelperXPCProtocol> object, std::string uniqueName)
    : object_(std::move(object)), client_{std::move(uniqueName)} {}

std::uint32_t Exporter::nextSerial() noexcept {
  if (++serial_ == 0) ++serial_;
  return serial_;
}

bool Exporter::handle(const Message& message, Bytes& answer) {
  if (message.type != MessageType::methodCall) return false;
  Answer writer(answer, nextSerial(), message, client_);
  try {
    if (const ExportedMethod* exported = find(message, writer); exported == nullptr) {
      // The refusal is the answer.
    } else if (message.signature != exported->method.in) {
      writer.error(kInvalidArgsError, "Expected arguments of the types '" + std::string(exported->method.in) +
                                          "', not '" + std::string(message.signature) + "'");
    } else {
      Call call(*object_, exported->method, message, writer, client_);
      exported->carryOut(call);
    }
  } catch (const ProtocolError& error) {
    writer.error(kInvalidArgsError, error.what());
  } catch (const MessageTooLarge& error) {
    writer.error(kLimitsExceededError, error.what());
  } catch (const std::bad_alloc&) {
    answer = Bytes();
    writer.error(kNoMemoryError, "The helper is out of memory.");
  }
  return (message.flags & kNoReplyExpected) == 0;
}

bool Exporter::refuse(const Frame& oversized, Bytes& answer) {
  if (oversized.type != MessageType::methodCall || (oversized.flags & kNoReplyExpected) != 0) return false;
  Message call;
  call.serial = oversized.serial;
  Answer(answer, nextSerial(), call, client_)
      .error(kLimitsExceededError,
             "A request may have " + std::to_string(kMaxRequestSize) + " bytes at most.");
  return true;
}

}  // namespace molvane::dbus
