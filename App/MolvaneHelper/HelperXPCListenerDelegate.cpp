#include "MolvaneHelper/HelperXPCListenerDelegate.hpp"

#include <algorithm>
#include <utility>

#include "HelperKit/Service/PeerScopedHelper.hpp"
#include "HelperProtocol/HelperIdentity.hpp"
#include "Platform/Log.hpp"

namespace molvane {

HelperXPCListenerDelegate::HelperXPCListenerDelegate(std::shared_ptr<HelperService> service, Process process)
    : service_(std::move(service)), process_(std::move(process)) {}

bool HelperXPCListenerDelegate::acceptsPeer(PeerConnection& connection) const {
  const std::string teamID = process_.teamID();
  if (teamID.empty()) {
    // The requirement without a team would let in whoever signs an app of that identifier.
    logLine("MolvaneHelper: no team ID in Release build; refusing all peers");
    return false;
  }
  connection.setCodeSigningRequirement(HelperIdentity::peerRequirement(teamID));
  return true;
}

bool HelperXPCListenerDelegate::shouldAcceptNewConnection(PeerConnection& connection) {
  if (!acceptsPeer(connection)) {
    logLine("MolvaneHelper: rejected XPC peer");
    return false;
  }
  connection.setExportedObject(
      std::make_shared<PeerScopedHelper>(service_, connection.effectiveUserIdentifier()));
  connectionOpened();
  connection.setInvalidationHandler([weak = weak_from_this()] {
    logLine("MolvaneHelper: connection invalidated");
    if (const auto self = weak.lock()) self->connectionInvalidated();
  });
  connection.resume();
  return true;
}

void HelperXPCListenerDelegate::connectionOpened() {
  const MutexLock hold(lock_);
  ++liveConnections_;
  process_.timers.cancel(std::exchange(idleTimer_, 0));
}

void HelperXPCListenerDelegate::connectionInvalidated() {
  std::int64_t remaining = 0;
  {
    const MutexLock hold(lock_);
    remaining = liveConnections_ - 1;
    liveConnections_ = std::max<std::int64_t>(remaining, 0);
  }
  if (remaining <= 0) scheduleIdleExit();
}

void HelperXPCListenerDelegate::scheduleIdleExit() {
  const MutexLock hold(lock_);
  process_.timers.cancel(idleTimer_);
  idleTimer_ = process_.timers.callAfter(kIdlePeriod, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->exitIfIdle();
  });
}

bool HelperXPCListenerDelegate::isIdle() const {
  const MutexLock hold(lock_);
  return liveConnections_ == 0;
}

void HelperXPCListenerDelegate::exitIfIdle() {
  if (isIdle()) process_.exit();
}

}  // namespace molvane
