#pragma once

#include <chrono>
#include <optional>

#include "Base/Mutex.hpp"

namespace molvane::dbus {

/// Whether a connection waits for its client's next call, and since when. Another thread may break the wait,
/// which gives the connection up, but never a call that has come.
class Silence {
 public:
  using Clock = std::chrono::steady_clock;

  /// The wait begins now.
  void begin() {
    const MutexLock lock(mutex_);
    since_ = Clock::now();
  }

  /// Ends the wait, if there is one; false once it was broken, and then no call may be begun any more.
  bool end() {
    const MutexLock lock(mutex_);
    since_.reset();
    return !broken_;
  }

  /// When the wait began; nothing when there is none or it was broken.
  [[nodiscard]] std::optional<Clock::time_point> since() const {
    const MutexLock lock(mutex_);
    return broken_ ? std::nullopt : since_;
  }

  /// Breaks the wait; false when there is none to break.
  [[nodiscard]] bool breakOff() {
    const MutexLock lock(mutex_);
    if (!since_ || broken_) return false;
    broken_ = true;
    return true;
  }

 private:
  mutable Mutex mutex_;
  std::optional<Clock::time_point> since_ MOLVANE_GUARDED_BY(mutex_);
  bool broken_ MOLVANE_GUARDED_BY(mutex_) = false;
};

}  // namespace molvane::dbus
