#pragma once

#include <functional>
#include <map>
#include <utility>

#include "Base/Mutex.hpp"
#include "Platform/Thread.hpp"
#include "Platform/TimerQueue.hpp"

namespace molvane {

/// The timer queue over the steady clock. Its one thread is started by the first armed call and joined by the
/// destructor, which waits for a call that has begun and forgets the ones that have not. Any thread may arm
/// and cancel, the called functions too; none of them may destroy the queue or throw.
class SteadyTimerQueue : public TimerQueue {
 public:
  SteadyTimerQueue() = default;
  ~SteadyTimerQueue() override;
  SteadyTimerQueue(const SteadyTimerQueue&) = delete;
  SteadyTimerQueue& operator=(const SteadyTimerQueue&) = delete;

  /// Calls that are due at the same moment run in the order in which they were armed. Throws
  /// std::system_error when the thread cannot be started; then nothing is armed.
  Handle callAfter(Duration delay, std::function<void()> function) override MOLVANE_EXCLUDES(mutex_);
  void cancel(Handle handle) override MOLVANE_EXCLUDES(mutex_);

 private:
  using Clock = std::chrono::steady_clock;
  using Moment = std::pair<Clock::time_point, Handle>;

  void serve() MOLVANE_EXCLUDES(mutex_);
  std::function<void()> nextDue() MOLVANE_EXCLUDES(mutex_);

  Mutex mutex_;
  Condition changed_;
  std::map<Moment, std::function<void()>> armed_ MOLVANE_GUARDED_BY(mutex_);
  Handle lastHandle_ MOLVANE_GUARDED_BY(mutex_) = 0;
  bool stopping_ MOLVANE_GUARDED_BY(mutex_) = false;
  Thread thread_ MOLVANE_GUARDED_BY(mutex_);
};

}  // namespace molvane
