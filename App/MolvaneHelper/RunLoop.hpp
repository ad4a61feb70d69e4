#pragma once

#include "Base/Mutex.hpp"

namespace molvane {

/// What the main thread does while the other threads serve: nothing, until it is told to stop.
class RunLoop {
 public:
  /// Blocks until stop() has been called since the last run() returned.
  void run() {
    const MutexLock hold(mutex_);
    while (!stopped_) changed_.wait(mutex_);
    stopped_ = false;
  }

  /// Lets run() return, now or later. Any thread, any number of times.
  void stop() {
    const MutexLock hold(mutex_);
    stopped_ = true;
    changed_.notify_all();
  }

 private:
  Mutex mutex_;
  Condition changed_;
  bool stopped_ MOLVANE_GUARDED_BY(mutex_) = false;
};

}  // namespace molvane
