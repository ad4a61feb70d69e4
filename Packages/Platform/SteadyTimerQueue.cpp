#include "Platform/SteadyTimerQueue.hpp"

#include <algorithm>

namespace molvane {

namespace {

using Clock = std::chrono::steady_clock;

/// As late as the clock goes when the sum would not fit.
Clock::time_point momentAfter(Clock::duration delay) {
  const Clock::time_point now = Clock::now();
  return delay > Clock::time_point::max() - now ? Clock::time_point::max() : now + std::max(delay, {});
}

}  // namespace

SteadyTimerQueue::~SteadyTimerQueue() {
  Thread thread;
  {
    MutexLock lock(mutex_);
    stopping_ = true;
    thread = std::move(thread_);
  }
  changed_.notify_all();
}

TimerQueue::Handle SteadyTimerQueue::callAfter(Duration delay, std::function<void()> function) {
  MutexLock lock(mutex_);
  if (!thread_.joinable()) thread_ = Thread([this] { serve(); });
  const Handle handle = ++lastHandle_;
  armed_.emplace(Moment{momentAfter(delay), handle}, std::move(function));
  changed_.notify_all();
  return handle;
}

void SteadyTimerQueue::cancel(Handle handle) {
  // Destroyed after the lock is gone: what the function holds may call this queue when it goes.
  decltype(armed_)::node_type cancelled;
  MutexLock lock(mutex_);
  const auto found = std::find_if(armed_.begin(), armed_.end(),
                                  [handle](const auto& armed) { return armed.first.second == handle; });
  if (found != armed_.end()) cancelled = armed_.extract(found);
}

void SteadyTimerQueue::serve() {
  while (const std::function<void()> function = nextDue()) function();
}

std::function<void()> SteadyTimerQueue::nextDue() {
  MutexLock lock(mutex_);
  while (!stopping_) {
    if (armed_.empty()) {
      changed_.wait(mutex_);
    } else if (const Clock::time_point due = armed_.begin()->first.first; due > Clock::now()) {
      changed_.wait_until(mutex_, due);
    } else {
      return std::move(armed_.extract(armed_.begin()).mapped());
    }
  }
  return nullptr;
}

}  // namespace molvane
