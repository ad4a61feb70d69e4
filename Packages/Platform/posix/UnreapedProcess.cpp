#include "Platform/posix/UnreapedProcess.hpp"

#include <signal.h>
#include <sys/wait.h>

#include <cerrno>

#include "Platform/posix/ProcessExitWatch.hpp"

namespace molvane {

UnreapedProcess watched(pid_t pid) {
  try {
    return {pid, openProcessExitWatch(pid)};
  } catch (...) {
    ::kill(pid, SIGKILL);
    reap(pid);
    throw;
  }
}

int reap(pid_t pid) {
  int status = 0;
  pid_t reaped = 0;
  do {
    reaped = ::waitpid(pid, &status, 0);
  } while (reaped < 0 && errno == EINTR);
  if (reaped != pid) return -1;
  return WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace molvane
