#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <utility>

#include "Base/Mutex.hpp"
#include "Platform/TimerQueue.hpp"

namespace molvane::testing {

/// A timer queue whose time stands still until a test moves it. Any thread may arm and cancel; one thread at
/// a time may advance, and the functions run on it.
class ManualTimerQueue : public TimerQueue {
 public:
  Handle callAfter(Duration delay, std::function<void()> function) override MOLVANE_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    armed_.emplace(Moment{now_ + std::max(delay, Duration::zero()), ++lastHandle_}, std::move(function));
    return lastHandle_;
  }

  void cancel(Handle handle) override MOLVANE_EXCLUDES(mutex_) {
    decltype(armed_)::node_type cancelled;
    MutexLock lock(mutex_);
    const auto found = std::find_if(armed_.begin(), armed_.end(),
                                    [handle](const auto& armed) { return armed.first.second == handle; });
    if (found != armed_.end()) cancelled = armed_.extract(found);
  }

  /// Moves the time on and runs what falls due on the way, in order, each at its own moment; also what the
  /// functions themselves arm within the span.
  void advance(Duration span) MOLVANE_EXCLUDES(mutex_) {
    const Duration end = now() + span;
    while (const std::function<void()> function = nextDueBy(end)) function();
  }

 private:
  using Moment = std::pair<Duration, Handle>;

  Duration now() MOLVANE_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    return now_;
  }

  std::function<void()> nextDueBy(Duration end) MOLVANE_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    if (armed_.empty() || armed_.begin()->first.first > end) {
      now_ = end;
      return nullptr;
    }
    now_ = armed_.begin()->first.first;
    return std::move(armed_.extract(armed_.begin()).mapped());
  }

  Mutex mutex_;
  std::map<Moment, std::function<void()>> armed_ MOLVANE_GUARDED_BY(mutex_);
  Duration now_ MOLVANE_GUARDED_BY(mutex_){};
  Handle lastHandle_ MOLVANE_GUARDED_BY(mutex_) = 0;
};

}  // namespace molvane::testing
