#include "Platform/ItemMove.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

namespace molvane {
namespace {

// ENOTSUP when the kernel or the file system does not know the flag.
int renameWith(unsigned flags, ItemPlace from, ItemPlace to) noexcept {
  if (renameat2(from.folder.get(), from.name.c_str(), to.folder.get(), to.name.c_str(), flags) == 0) return 0;
  return errno == EINVAL || errno == ENOSYS ? ENOTSUP : errno;
}

}  // namespace

int moveToFreePlace(ItemPlace from, ItemPlace to) noexcept {
  const int error = renameWith(RENAME_NOREPLACE, from, to);
  if (error != ENOTSUP) return error;
  struct stat status {};
  if (fstatat(to.folder.get(), to.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  if (errno != ENOENT) return errno;
  return renameWith(0, from, to);
}

int exchangeItems(ItemPlace one, ItemPlace other) noexcept { return renameWith(RENAME_EXCHANGE, one, other); }

}  // namespace molvane
