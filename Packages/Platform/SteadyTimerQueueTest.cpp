#include "Platform/SteadyTimerQueue.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace molvane {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

TEST(SteadyTimerQueue, CallsInTheOrderOfTheirTimesOnOneThreadOfItsOwn) {
  std::vector<std::string> calls;
  std::vector<std::thread::id> threads;
  std::promise<void> done;
  SteadyTimerQueue queue;
  const auto calling = [&](const std::string& name) {
    return [&, name] {
      calls.push_back(name);
      threads.push_back(std::this_thread::get_id());
    };
  };
  queue.callAfter(60ms, [&] { done.set_value(); });
  queue.callAfter(40ms, calling("third"));
  queue.callAfter(20ms, calling("second"));
  queue.callAfter(-1h, calling("first"));
  done.get_future().wait();
  EXPECT_THAT(calls, ElementsAre("first", "second", "third"));
  EXPECT_EQ(threads[0], threads[2]);
  EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST(SteadyTimerQueue, ForgetsWhatWasCancelledAndWhatIsStillArmedAtTheEnd) {
  bool called = false;
  std::promise<void> begun;
  std::promise<void> release;
  std::promise<void> done;
  {
    SteadyTimerQueue queue;
    // While it is at this call, none of the others is made.
    queue.callAfter(0ms, [&] {
      begun.set_value();
      release.get_future().wait();
    });
    begun.get_future().wait();
    const TimerQueue::Handle first = queue.callAfter(0ms, [&] { called = true; });
    EXPECT_NE(first, 0U);
    queue.callAfter(TimerQueue::Duration::max(), [&] { called = true; });
    queue.callAfter(0ms, [&] { done.set_value(); });
    queue.cancel(first);
    queue.cancel(first);
    queue.cancel(12345);
    release.set_value();
    done.get_future().wait();
  }
  EXPECT_FALSE(called);
}

TEST(SteadyTimerQueue, TakesCallsAndCancellationsFromACallAndFromWhatACallHeld) {
  SteadyTimerQueue queue;
  std::promise<void> done;
  bool called = false;
  const TimerQueue::Handle other = queue.callAfter(1h, [&] { called = true; });
  auto held = std::shared_ptr<void>(nullptr, [&](void*) { queue.cancel(other); });
  const TimerQueue::Handle holding = queue.callAfter(1h, [held = std::move(held)] {});
  queue.callAfter(0ms, [&] {
    queue.cancel(holding);
    queue.callAfter(0ms, [&] { done.set_value(); });
  });
  done.get_future().wait();
  EXPECT_FALSE(called);
}

TEST(SteadyTimerQueue, WaitsAtTheEndForACallThatHasBegun) {
  std::promise<void> begun;
  std::promise<void> release;
  bool finished = false;
  std::optional<SteadyTimerQueue> queue(std::in_place);
  queue->callAfter(0ms, [&] {
    begun.set_value();
    release.get_future().wait();
    finished = true;
  });
  begun.get_future().wait();
  std::thread releasing([&] { release.set_value(); });
  queue.reset();
  EXPECT_TRUE(finished);
  releasing.join();
}

}  // namespace
}  // namespace molvane
