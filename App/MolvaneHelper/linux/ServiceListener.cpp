#include "MolvaneHelper/ServiceListener.hpp"

#include <optional>
#include <string>
#include <utility>

#include "HelperProtocol/dbus/Names.hpp"
#include "HelperProtocol/dbus/SocketListener.hpp"
#include "Platform/CodeSigning.hpp"

namespace molvane {
namespace {

// The listener together with what checks its peers.
class ServiceListener final : public Listener {
 public:
  explicit ServiceListener(dbus::ListeningSocket socket)
      : codeSigning_(makeCodeSigning()), listener_(std::move(socket), *codeSigning_) {}

  void setDelegate(ListenerDelegate& delegate) override { listener_.setDelegate(delegate); }
  void resume() override { listener_.resume(); }
  void suspend() override { listener_.suspend(); }

 private:
  const std::unique_ptr<CodeSigning> codeSigning_;
  dbus::SocketListener listener_;
};

dbus::ListeningSocket serviceSocket() {
  if (std::optional<FileDescriptor> passed = dbus::activationSocket()) {
    return dbus::ListeningSocket(*std::move(passed));
  }
  return dbus::ListeningSocket(std::string(dbus::kSocketPath));
}

}  // namespace

std::unique_ptr<Listener> makeServiceListener() { return std::make_unique<ServiceListener>(serviceSocket()); }

}  // namespace molvane
