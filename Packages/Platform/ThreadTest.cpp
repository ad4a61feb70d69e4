#include "Platform/Thread.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <future>
#include <system_error>
#include <utility>

namespace molvane {
namespace {

TEST(Thread, IsWaitedForByDestructorAssignmentAndJoin) {
  std::atomic<int> finished = 0;
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  const auto body = [&finished, released] {
    released.wait();
    ++finished;
  };
  Thread first(body);
  Thread second(body);
  Thread moved(std::move(second));
  EXPECT_TRUE(first.joinable());
  EXPECT_FALSE(second.joinable());  // NOLINT(bugprone-use-after-move): that it is empty is the point
  release.set_value();

  first = std::move(moved);
  EXPECT_GE(finished, 1);
  first.join();
  EXPECT_EQ(finished, 2);
  EXPECT_FALSE(first.joinable());
  first.join();
  { const Thread third(body); }
  EXPECT_EQ(finished, 3);
}

TEST(Thread, RaisesAStackThatIsTooSmallAndReportsOneThatIsTooLarge) {
  std::atomic<int> ran = 0;
  Thread([&] { ++ran; }, 1).join();
  Thread([&] { ++ran; }, Thread::kSmallStack + 1).join();
  EXPECT_EQ(ran, 2);
  EXPECT_THROW(Thread([&] { ++ran; }, std::size_t{1} << 60), std::system_error);
  EXPECT_EQ(ran, 2);
}

TEST(Thread, ReleasesWhatTheBodyHeldBeforeJoinReturns) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  Thread thread([held = std::move(held)] {});
  thread.join();
  EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace molvane
