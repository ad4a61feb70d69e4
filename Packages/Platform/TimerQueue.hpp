#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace molvane {

/// Calls functions later. The seam between whatever waits on a clock and the clock.
class TimerQueue {
 public:
  using Duration = std::chrono::steady_clock::duration;
  /// Names an armed call; never 0.
  using Handle = std::uint64_t;

  virtual ~TimerQueue() = default;

  /// Calls `function` once, `delay` from now, on a thread of the queue's own. Functions of one queue never
  /// overlap.
  virtual Handle callAfter(Duration delay, std::function<void()> function) = 0;

  /// Forgets an armed call. A call that has already begun is not waited for; an unknown handle is ignored.
  virtual void cancel(Handle handle) = 0;
};

}  // namespace molvane
