#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Base/Mutex.hpp"
#include "HelperKit/Service/HelperService.hpp"
#include "HelperProtocol/Connection.hpp"
#include "Platform/TimerQueue.hpp"

namespace molvane {

/// Accepts the signed app's connections, counts them, and asks for the process's end when none has been left
/// for two minutes.
///
/// A refused peer changes no state. Make it with std::make_shared: invalidation handlers and the armed idle
/// call hold it weakly, so they neither keep it alive nor run into one that is gone.
class HelperXPCListenerDelegate final : public ListenerDelegate,
                                        public std::enable_shared_from_this<HelperXPCListenerDelegate> {
 public:
  /// How long after the last connection has ended, or since the last arming, the process goes on.
  static constexpr std::chrono::seconds kIdlePeriod{120};

  /// What the delegate needs of the process around it.
  struct Process {
    TimerQueue& timers;                   ///< must outlive the delegate
    std::function<std::string()> teamID;  ///< the build's team identifier, empty when it has none; any thread
    std::function<void()> exit;           ///< asks the process to end, if it is still idle; any thread
  };

  HelperXPCListenerDelegate(std::shared_ptr<HelperService> service, Process process);

  bool shouldAcceptNewConnection(PeerConnection& connection) override;

  /// Arms the idle exit afresh: idle period from now the process is asked to end, unless a connection has
  /// come by then.
  void scheduleIdleExit() MOLVANE_EXCLUDES(lock_);

  /// Whether no connection lives at this moment.
  [[nodiscard]] bool isIdle() const MOLVANE_EXCLUDES(lock_);

 private:
  [[nodiscard]] bool acceptsPeer(PeerConnection& connection) const;
  void connectionOpened() MOLVANE_EXCLUDES(lock_);
  void connectionInvalidated() MOLVANE_EXCLUDES(lock_);
  void exitIfIdle() MOLVANE_EXCLUDES(lock_);

  const std::shared_ptr<HelperService> service_;
  const Process process_;

  mutable Mutex lock_;
  std::int64_t liveConnections_ MOLVANE_GUARDED_BY(lock_) = 0;
  TimerQueue::Handle idleTimer_ MOLVANE_GUARDED_BY(lock_) = 0;  // 0: none is armed
};

}  // namespace molvane
