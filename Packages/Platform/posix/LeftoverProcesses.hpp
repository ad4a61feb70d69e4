#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <vector>

#include "Base/Mutex.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/posix/SpawnHost.hpp"

namespace molvane {

/// A child of this program that has not been reaped, as its last owner leaves it.
struct UnreapedProcess {
  pid_t pid = -1;
  FileDescriptor exitWatch;
  FileDescriptor output;  ///< reading end of its output; may be empty
};

/// The tools that nobody waits for any more: those that ignored the request to terminate and are not to be
/// killed.
///
/// One thread for all of them reads and drops what they write, because a full pipe would stop them and a
/// closed one would kill them, and reaps each when it ends. The thread exists only while there is such a
/// tool. Any thread may call.
class LeftoverProcesses {
 public:
  /// No further tool is started while so many of them run.
  static constexpr std::size_t kMost = 64;

  /// The ones of this program. Throws std::system_error when the first call cannot make it.
  static LeftoverProcesses& shared();

  /// Throws std::system_error (EAGAIN) when there are kMost or more. What was started before may still be
  /// left behind, so the number can grow beyond it by as many tools as run now.
  void requireRoom() MOLVANE_EXCLUDES(mutex_);

  void adopt(UnreapedProcess process) noexcept MOLVANE_EXCLUDES(mutex_);

  /// Waits until all have ended and been reaped; false when that did not happen before `deadline`.
  bool waitUntilNone(std::chrono::steady_clock::time_point deadline) MOLVANE_EXCLUDES(mutex_);

 private:
  LeftoverProcesses();

  void startKeeper() noexcept MOLVANE_REQUIRES(mutex_);
  void keep() MOLVANE_EXCLUDES(mutex_);
  bool takeArrivals(std::vector<UnreapedProcess>& kept) MOLVANE_EXCLUDES(mutex_);
  void waitForEvent(std::vector<UnreapedProcess>& kept);

  const Pipe wakeUp_;
  Mutex mutex_;
  Condition noneLeft_;
  std::vector<UnreapedProcess> arrived_ MOLVANE_GUARDED_BY(mutex_);
  std::size_t kept_ MOLVANE_GUARDED_BY(mutex_) = 0;
  bool keeperRuns_ MOLVANE_GUARDED_BY(mutex_) = false;
};

}  // namespace molvane
