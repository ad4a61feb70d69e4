#include "Platform/posix/SpawnHost.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "Base/NSError.hpp"

namespace molvane {

FileDescriptor aboveStandardStreams(FileDescriptor descriptor) {
  if (descriptor.get() > STDERR_FILENO) return descriptor;
  FileDescriptor moved(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!moved) throwErrno("moving a descriptor above the standard streams");
  return moved;
}

}  // namespace molvane
