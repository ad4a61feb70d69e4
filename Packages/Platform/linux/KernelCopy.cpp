#include "Platform/posix/KernelCopy.hpp"

#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace molvane {

namespace {

// What the call answers where the two files, or their file systems, are not of the kind that it copies.
bool cannotCopy(int error) {
  return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM ||
         error == ETXTBSY || error == EBADF;
}

}  // namespace

ssize_t kernelCopy(int from, int to, std::size_t most) noexcept {
  for (;;) {
    const ssize_t count = copy_file_range(from, nullptr, to, nullptr, most, 0);
    if (count < 0 && errno == EINTR) continue;
    return count < 0 && cannotCopy(errno) ? 0 : count;
  }
}

void copyExtendedAttributes(int from, int to) {
  constexpr std::size_t kMostBytes = std::size_t{64}
                                     << 10U;  // the kernel's own limit for names and for a value
  std::vector<char> names(kMostBytes);
  std::vector<char> value(kMostBytes);
  const ssize_t size = flistxattr(from, names.data(), names.size());
  for (ssize_t at = 0; at < size;) {
    const char* name = names.data() + at;
    const ssize_t length = fgetxattr(from, name, value.data(), value.size());
    if (length >= 0)
      static_cast<void>(fsetxattr(to, name, value.data(), static_cast<std::size_t>(length), 0));
    at += static_cast<ssize_t>(std::strlen(name)) + 1;
  }
}

}  // namespace molvane
