#include "HelperKit/Service/AllowedItem.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "Base/NSError.hpp"
#include "HelperKit/Service/HelperServiceError.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/TreeRemoval.hpp"
#include "Platform/TreeSize.hpp"

namespace molvane {
namespace {

using Refusal = HelperServiceErrorCase;

// Whether `error` of a look-up says that nothing can be there: a missing name, one too long for any file, or
// a link that leads round in circles, through a file, or to such a name.
bool meansNothing(int error) {
  return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
}

// The status of `name` in the folder `at`, links followed or not. Throws notFound for nothing.
struct stat statusOf(int at, const std::string& name, int flags, const std::string& path) {
  struct stat status {};
  if (fstatat(at, name.c_str(), &status, flags) != 0) {
    if (meansNothing(errno)) throw HelperServiceError(Refusal::notFound, path);
    throwErrno("look at " + path);
  }
  return status;
}

struct stat statusOf(const HeldItem& item, int flags, const std::string& path) {
  return statusOf(item.folder.get(), item.name, flags, path);
}

}  // namespace

AllowedItem::AllowedItem(std::string root, std::string path)
    : root_(std::move(root)), path_(std::move(path)) {}

HeldItem AllowedItem::hold() const {
  try {
    return walkToItem(root_, path_);
  } catch (const WalkError& error) {
    throw HelperServiceError(error.which() == WalkErrorCase::link ? Refusal::denied : Refusal::notFound,
                             path_);
  } catch (const std::system_error& error) {
    if (meansNothing(error.code().value())) throw HelperServiceError(Refusal::notFound, path_);
    throw;
  }
}

void AllowedItem::remove() const {
  const HeldItem item = hold();
  // A link counts as there when its target is.
  static_cast<void>(statusOf(item, 0, path_));
  removeItem(item);
}

std::int64_t AllowedItem::logicalSize() const {
  if (path_ == root_) {
    const struct stat root = statusOf(AT_FDCWD, root_, 0, path_);
    return S_ISDIR(root.st_mode) ? molvane::logicalSize(openFolder(root_)) : root.st_size;
  }
  const HeldItem item = hold();
  const bool leadsToFolder = S_ISDIR(statusOf(item, 0, path_).st_mode);
  const struct stat itself = statusOf(item, AT_SYMLINK_NOFOLLOW, path_);
  if (!leadsToFolder) return itself.st_size;
  // Listing a link to a folder lists nothing.
  if (S_ISLNK(itself.st_mode)) return 0;
  try {
    return molvane::logicalSize(openItemFolder(item));
  } catch (const WalkError&) {
    // By now something else has taken its place, or nothing: no folder that could be listed.
    return 0;
  }
}

}  // namespace molvane
