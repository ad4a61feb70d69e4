#include "HelperProtocol/testing/ServedHelper.hpp"

#include <fcntl.h>

#include <chrono>
#include <utility>

namespace molvane::testing {

PeerVerdict FakeCodeSigning::checkPeer(const FileDescriptor& /*socket*/, std::string_view requirement) {
  if (requirement != kRequirement) return {{"another requirement was asked about"}, {}};
  return {{problem_}, FileDescriptor(::fcntl(ended_.descriptor().get(), F_DUPFD_CLOEXEC, 0))};
}

ServedHelper::ServedHelper(Options options) : options_(std::move(options)) {
  listener_ = std::make_unique<dbus::SocketListener>(dbus::ListeningSocket(socketPath_), codeSigning_,
                                                     options_.limits, options_.peerUID);
  listener_->setDelegate(*this);
  listener_->resume();
}

ServedHelper::~ServedHelper() { stop(); }

int ServedHelper::resumed() {
  const MutexLock lock(mutex_);
  return resumed_;
}

int ServedHelper::invalidated() {
  const MutexLock lock(mutex_);
  return invalidated_;
}

bool ServedHelper::waitForInvalidations(int count) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  const MutexLock lock(mutex_);
  while (invalidated_ < count) {
    if (changed_.wait_until(mutex_, deadline) == std::cv_status::timeout) return false;
  }
  return true;
}

bool ServedHelper::shouldAcceptNewConnection(PeerConnection& connection) {
  if (options_.setsRequirement)
    connection.setCodeSigningRequirement(std::string(FakeCodeSigning::kRequirement));
  connection.setExportedObject(helper_);
  connection.setInvalidationHandler([this] {
    const MutexLock lock(mutex_);
    ++invalidated_;
    changed_.notify_all();
  });
  if (!options_.accepts) return false;
  {
    const MutexLock lock(mutex_);
    ++resumed_;
  }
  connection.resume();
  return true;
}

}  // namespace molvane::testing
