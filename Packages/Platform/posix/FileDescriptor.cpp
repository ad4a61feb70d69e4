#include "Platform/FileDescriptor.hpp"

#include <unistd.h>

namespace molvane {

void FileDescriptor::reset(int fd) noexcept {
  // Never retried: after EINTR the number may belong to another descriptor of another thread already.
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
}

}  // namespace molvane
