#include "Platform/posix/ProcessExitWatch.hpp"

#include <sys/syscall.h>
#include <unistd.h>

#include <utility>

#include "Base/NSError.hpp"
#include "Platform/posix/SpawnHost.hpp"

namespace molvane {

FileDescriptor openProcessExitWatch(pid_t pid) {
  // glibc 2.36 declares pidfd_open() without C linkage. The descriptor is always close-on-exec.
  FileDescriptor watch(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  if (!watch) throwErrno("watching a process");
  return aboveStandardStreams(std::move(watch));
}

}  // namespace molvane
