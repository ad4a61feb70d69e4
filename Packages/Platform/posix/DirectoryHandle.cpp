#include "Platform/DirectoryHandle.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "Base/NSError.hpp"

namespace molvane {
namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;

// Opens the folder `name` in `parent`; `path` is what it is called in an error.
FileDescriptor openChild(const FileDescriptor& parent, const std::string& name, const std::string& path) {
  FileDescriptor child(openat(parent.get(), name.c_str(), kOpenFolder | O_NOFOLLOW));
  if (child) return child;
  const int error = errno;
  if (error == ENOENT) throw WalkError(WalkErrorCase::missing, path);
  if (error == ELOOP || error == ENOTDIR) {
    // The answer for a link differs between systems, so the entry is asked what it is. That it may have
    // changed since decides no more than which refusal is given.
    struct stat status {};
    const bool isLink =
        fstatat(parent.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
    throw WalkError(isLink ? WalkErrorCase::link : WalkErrorCase::notDirectory, path);
  }
  errno = error;
  throwErrno("open " + path);
}

}  // namespace

std::string describe(WalkErrorCase which, const std::string& path) {
  switch (which) {
    case WalkErrorCase::missing:
      return "Nothing at " + path;
    case WalkErrorCase::link:
      return "A link at " + path;
    case WalkErrorCase::notDirectory:
      return "Not a folder: " + path;
  }
  return path;
}

FileDescriptor openFolder(const std::string& path) {
  FileDescriptor folder(open(path.c_str(), kOpenFolder));
  if (!folder) throwErrno("open " + path);
  return folder;
}

FileDescriptor openedAnew(const FileDescriptor& folder) {
  FileDescriptor opened(openat(folder.get(), ".", kOpenFolder));
  if (!opened) throwErrno("open a folder anew");
  return opened;
}

void syncFolder(const FileDescriptor& folder) {
  if (fsync(folder.get()) != 0) throwErrno("sync a folder");
}

HeldItem walkToItem(const std::string& root, const std::string& path) {
  const std::string_view below = root == "/" ? std::string_view() : std::string_view(root);
  if (!path.starts_with(below) || path.size() <= below.size() + 1 || path[below.size()] != '/') {
    throw std::invalid_argument(path + " does not lie below " + root);
  }
  // A NUL would cut the path short for the system, and the item acted on would be another than the one
  // checked.
  if (path.find('\0') != std::string::npos) throw WalkError(WalkErrorCase::missing, path);

  FileDescriptor folder;
  try {
    folder = openFolder(root);
  } catch (const std::system_error& error) {
    if (error.code().value() == ENOENT) throw WalkError(WalkErrorCase::missing, root);
    throw;
  }
  std::size_t begin = below.size() + 1;
  for (std::size_t end = path.find('/', begin); end != std::string::npos; end = path.find('/', begin)) {
    folder = openChild(folder, path.substr(begin, end - begin), path.substr(0, end));
    begin = end + 1;
  }
  return {std::move(folder), path.substr(begin)};
}

bool isSameItem(const FileDescriptor& folder, const std::string& name, const struct stat& item) {
  struct stat found {};
  return fstatat(folder.get(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 &&
         found.st_dev == item.st_dev && found.st_ino == item.st_ino;
}

FileDescriptor openItemFolder(const HeldItem& item) { return openChild(item.folder, item.name, item.name); }

}  // namespace molvane
