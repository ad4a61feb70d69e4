#include "Platform/linux/PeerProcess.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "Base/NSError.hpp"

// Newer than the C library's headers.
#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77
#endif

namespace molvane {

namespace {

pid_t peerNumber(const FileDescriptor& socket) {
  struct ucred credentials {};
  socklen_t size = sizeof credentials;
  if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) throwErrno("SO_PEERCRED");
  if (credentials.pid <= 0) throw std::runtime_error("the peer's process is not visible");
  return credentials.pid;
}

FileDescriptor pin(const FileDescriptor& socket, pid_t number) {
  int process = -1;
  socklen_t size = sizeof process;
  if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERPIDFD, &process, &size) == 0)
    return FileDescriptor(process);
  // Any other error says that the process is gone, and then its number may be another's already.
  if (errno != ENOPROTOOPT) throwErrno("SO_PEERPIDFD");
  // The C library's own declaration of it lacks C linkage in some versions.
  FileDescriptor opened(static_cast<int>(syscall(SYS_pidfd_open, number, 0)));
  if (!opened) throwErrno("pidfd_open");
  return opened;
}

}  // namespace

PeerProcess::PeerProcess(const FileDescriptor& socket) {
  const pid_t number = peerNumber(socket);
  process_ = pin(socket, number);
  link_ = "/proc/" + std::to_string(number) + "/exe";
}

FileDescriptor PeerProcess::openExecutable() const {
  FileDescriptor executable(open(link_.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!executable) throwErrno(link_);
  return executable;
}

void PeerProcess::requireAlive() const {
  // The descriptor becomes readable when the process exits.
  struct pollfd exited {
    process_.get(), POLLIN, 0
  };
  const int ready = poll(&exited, 1, 0);
  if (ready < 0) throwErrno("poll");
  if (ready > 0) throw std::runtime_error("the peer's process has exited");
}

}  // namespace molvane
