#include "Platform/LockFile.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

#include "Base/NSError.hpp"
#include "Platform/Deadline.hpp"

namespace molvane {

// Only who is next tries for the lock itself. Without that, a holder that wants it again at once would
// mostly be faster than everybody who waits.
LockFile::LockFile(const std::string& path, double seconds) {
  const auto deadline = deadlineAfter(seconds);
  const LockedFile next(path + ".next", deadline);
  held_.emplace(path, deadline);
}

LockFile::LockedFile::LockedFile(std::string path, std::chrono::steady_clock::time_point deadline)
    : path_(std::move(path)) {
  // The system's own wait has no end. Whoever holds a lock writes a file, which takes longer than this.
  constexpr std::chrono::milliseconds kPause(1);
  while (!tryToLock()) {
    if (std::chrono::steady_clock::now() >= deadline)
      throw std::system_error(EBUSY, std::generic_category(), "lock " + path_);
    std::this_thread::sleep_for(kPause);
  }
}

// Removed while it is still locked: who opened it before finds that it lies there no more, and tries again.
LockFile::LockedFile::~LockedFile() {
  if (isAt(path_, file_)) ::unlink(path_.c_str());
}

bool LockFile::LockedFile::tryToLock() {
  constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  constexpr mode_t kOwnerOnly = 0600;
  FileDescriptor file(::open(path_.c_str(), kFlags, kOwnerOnly));
  if (!file) throwErrno("open " + path_);
  if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK || errno == EINTR) return false;
    throwErrno("lock " + path_);
  }
  file_ = heldFile(std::move(file), path_);
  return isAt(path_, file_);
}

}  // namespace molvane
