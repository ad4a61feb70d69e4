#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "Platform/posix/TreeWalk.hpp"

namespace molvane {

FileDescriptor openSubfolder(int parent, const char* name, bool staysOnMount) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  if (!staysOnMount) return FileDescriptor(openat(parent, name, kFlags));
  // Device numbers would not tell a bind mount of the same file system; the kernel does.
  open_how how{};
  how.flags = kFlags;
  how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS;
  return FileDescriptor(static_cast<int>(syscall(SYS_openat2, parent, name, &how, sizeof how)));
}

}  // namespace molvane
