#pragma once

#include <condition_variable>
#include <mutex>

// Clang's thread-safety analysis checks at compile time that what is MOLVANE_GUARDED_BY a mutex is touched
// only under it. Other compilers see nothing of it.
#if defined(__clang__)
#define MOLVANE_TS(x) __attribute__((x))
#else
#define MOLVANE_TS(x)
#endif

#define MOLVANE_CAPABILITY(x) MOLVANE_TS(capability(x))
#define MOLVANE_SCOPED_CAPABILITY MOLVANE_TS(scoped_lockable)
#define MOLVANE_GUARDED_BY(x) MOLVANE_TS(guarded_by(x))
#define MOLVANE_REQUIRES(...) MOLVANE_TS(requires_capability(__VA_ARGS__))
#define MOLVANE_EXCLUDES(...) MOLVANE_TS(locks_excluded(__VA_ARGS__))
#define MOLVANE_ACQUIRE(...) MOLVANE_TS(acquire_capability(__VA_ARGS__))
#define MOLVANE_RELEASE(...) MOLVANE_TS(release_capability(__VA_ARGS__))

namespace molvane {

class MOLVANE_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() MOLVANE_ACQUIRE() { mutex_.lock(); }
  void unlock() MOLVANE_RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// Holds a Mutex for as long as it lives.
class MOLVANE_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) MOLVANE_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() MOLVANE_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

/// Waits under a Mutex: `condition.wait(mutex)` releases it while it sleeps. Wake-ups may be spurious, so
/// callers loop over what they wait for.
using Condition = std::condition_variable_any;

}  // namespace molvane
