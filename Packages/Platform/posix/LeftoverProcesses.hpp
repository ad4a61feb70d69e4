#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

#include "Base/Mutex.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/posix/SpawnHost.hpp"
#include "Platform/posix/UnreapedProcess.hpp"

namespace molvane {

/// The tools that nobody waits for any more, since they ignored the request to terminate and are not to be
/// killed; and the pipes into which these, or what tools have left behind, may still write.
///
/// A full pipe would stop them and a closed one would kill them, so each such pipe gets a reader: a process
/// of its own, which drops everything and ends with the last writer. That may be after this program's end.
/// One thread reaps tools and readers. It exists only while there are any. Any thread may call.
class LeftoverProcesses {
 public:
  /// No further tool is started while so many of them run.
  static constexpr std::size_t kMost = 64;
  /// While so many readers run, none is started for the output of a tool that has ended.
  static constexpr std::size_t kMostReaders = 256;

  /// The ones of this program. Throws std::system_error when the first call cannot make it.
  static LeftoverProcesses& shared();

  /// Throws std::system_error (EAGAIN) when there are kMost tools or more. What was started before may still
  /// be left behind, so the number can grow beyond it by as many tools as run now.
  void requireRoom() MOLVANE_EXCLUDES(mutex_);

  /// Takes a tool that runs, reaps it when it ends, and gives its output a reader. `output` is the reading
  /// end, above 2 or empty. When the system starts no reader it is closed, and the log says so.
  void adopt(UnreapedProcess tool, FileDescriptor output) noexcept MOLVANE_EXCLUDES(mutex_);

  /// Takes the output of a tool that has ended, and gives it a reader if another process can still write into
  /// it. It is closed, too, when there are kMostReaders or more.
  void swallow(FileDescriptor output) noexcept MOLVANE_EXCLUDES(mutex_);

  /// Waits until all tools and readers have ended and been reaped; false when that did not happen before
  /// `deadline`.
  bool waitUntilNone(std::chrono::steady_clock::time_point deadline) MOLVANE_EXCLUDES(mutex_);

 private:
  struct Leftover {
    UnreapedProcess process;
    bool isReader = false;
  };

  LeftoverProcesses();

  std::size_t readers() MOLVANE_EXCLUDES(mutex_);
  void startReader(const FileDescriptor& output, std::size_t most) noexcept MOLVANE_EXCLUDES(mutex_);
  void add(Leftover leftover) noexcept MOLVANE_EXCLUDES(mutex_);
  void startKeeper() noexcept MOLVANE_REQUIRES(mutex_);
  void keep() MOLVANE_EXCLUDES(mutex_);
  bool takeArrivals(std::vector<Leftover>& kept) MOLVANE_EXCLUDES(mutex_);
  void waitForEnd(std::vector<Leftover>& kept);

  const Pipe wakeUp_;
  Mutex mutex_;
  Condition noneLeft_;
  std::vector<Leftover> arrived_ MOLVANE_GUARDED_BY(mutex_);
  std::size_t tools_ MOLVANE_GUARDED_BY(mutex_) = 0;
  std::size_t readers_ MOLVANE_GUARDED_BY(mutex_) = 0;
  bool keeperRuns_ MOLVANE_GUARDED_BY(mutex_) = false;
};

}  // namespace molvane
