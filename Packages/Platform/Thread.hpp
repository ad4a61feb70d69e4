#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>
#include <optional>

namespace molvane {

/// A thread that is waited for: the destructor, and an assignment over it, join first.
///
/// What runs on it must not throw; an exception that leaves it ends the program. One thread at a time may use
/// an object, and never the thread that it stands for.
class Thread {
 public:
  /// Enough for code that keeps its data on the heap, for whoever has a thread for each peer.
  static constexpr std::size_t kSmallStack = std::size_t{256} * 1024;

  /// No thread.
  Thread() = default;

  /// Starts `body` on a thread of its own. `stackSize` is in bytes, raised to what the host needs; 0 takes
  /// the host's default. Throws std::system_error (EAGAIN) when there is no thread to be had.
  explicit Thread(std::function<void()> body, std::size_t stackSize = 0);

  Thread(Thread&& other) noexcept;
  Thread& operator=(Thread&& other) noexcept;
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  ~Thread();

  /// Waits until `body` has returned. Does nothing when there is no thread, or no longer.
  void join() noexcept;

  /// Whether there is a thread that was not joined yet, running or not.
  [[nodiscard]] bool joinable() const noexcept { return thread_.has_value(); }

 private:
  std::optional<pthread_t> thread_;
};

}  // namespace molvane
