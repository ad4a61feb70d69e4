#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "Platform/SafeFile.hpp"

namespace molvane {

/// A lock that one object at a time holds, of all in any thread and process that know its path. It ends with
/// the object, and with the process however that ends.
///
/// While the lock is held, or waited for, a file lies at the path and another whose name has ".next" behind
/// it; those that a killed process has left do no harm. Removing one by hand meanwhile can let a second
/// holder in.
class LockFile {
 public:
  /// Takes the lock; waits for up to `seconds` while others hold it or have waited longer. Throws
  /// std::system_error: EBUSY after that time, and what keeps a file from being opened for writing. A link is
  /// not followed: ELOOP.
  LockFile(const std::string& path, double seconds);

 private:
  /// One of the two files, locked.
  class LockedFile {
   public:
    LockedFile(std::string path, std::chrono::steady_clock::time_point deadline);
    ~LockedFile();
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;

   private:
    [[nodiscard]] bool tryToLock();

    std::string path_;
    HeldFile file_;
  };

  std::optional<LockedFile> held_;
};

}  // namespace molvane
