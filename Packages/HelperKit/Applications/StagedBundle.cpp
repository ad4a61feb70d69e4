#include "HelperKit/Applications/StagedBundle.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <optional>
#include <system_error>
#include <utility>

#include "Base/NSError.hpp"
#include "HelperKit/Applications/ApplicationInstallPolicy.hpp"
#include "Platform/GrantingAttributes.hpp"
#include "Platform/posix/TreeWalk.hpp"

namespace molvane {

namespace {

using ApplicationInstallPolicy::Failure;
using ApplicationInstallPolicy::FailureCase;

// The group is often one that everybody is in.
constexpr mode_t kWidestMode = S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH;
constexpr mode_t kPermissionBits = 07777;

void narrowRights(const FileDescriptor& item, mode_t mode) {
  removeGrantingAttributes(item);
  if ((mode & kPermissionBits & ~kWidestMode) == 0) return;
  if (fchmod(item.get(), mode & kWidestMode) != 0) throwErrno("set the mode of a staged copy");
}

class Inspection {
 public:
  Inspection(FileDescriptor top, const std::string& path, uid_t owner)
      : walk_(std::move(top), true), path_(path), owner_(owner) {}

  void run() {
    inspectFolder();
    for (;;) {
      if (const std::optional<std::string> name = walk_.takeRemembered()) {
        if (const int error = walk_.enter(*name); error != 0) {
          throw std::system_error(error, std::generic_category(), "open " + *name);
        }
        inspectFolder();
      } else if (walk_.depth() == 1) {
        return;
      } else {
        walk_.leave();
      }
    }
  }

 private:
  void inspectFolder() {
    const FileDescriptor folder(openat(walk_.folder(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    inspect(folder);
    while (const std::optional<TreeEntry> entry = walk_.next()) inspectEntry(*entry);
  }

  void inspectEntry(const TreeEntry& entry) {
    struct stat status {};
    if (fstatat(walk_.folder(), entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      throwErrno("look at a staged copy");
    }
    requireOwner(status);
    if (S_ISDIR(status.st_mode)) {
      walk_.remember(entry);
    } else if (S_ISREG(status.st_mode)) {
      inspect(
          FileDescriptor(openat(walk_.folder(), entry.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)));
    } else if (!S_ISLNK(status.st_mode)) {
      throw Failure(FailureCase::notAnApp, path_);
    }
  }

  void inspect(const FileDescriptor& item) const {
    struct stat status {};
    if (!item || fstat(item.get(), &status) != 0) throwErrno("look at a staged copy");
    requireOwner(status);
    narrowRights(item, status.st_mode);
  }

  void requireOwner(const struct stat& status) const {
    if (status.st_uid != owner_) throw Failure(FailureCase::notOwned, path_);
  }

  TreeWalk walk_;
  const std::string& path_;
  const uid_t owner_;
};

}  // namespace

void checkStagedBundle(const HeldItem& copy, const std::string& path, uid_t peerUID,
                       const std::string& bundleID) {
  std::optional<std::string> found;
  FileDescriptor top;
  try {
    top = openItemFolder(copy);
    found = ApplicationInstallPolicy::bundleID(top);
  } catch (const WalkError&) {
    throw Failure(FailureCase::notAnApp, path);
  }
  Inspection(std::move(top), path, peerUID).run();
  if (found != bundleID) throw Failure(FailureCase::notAnApp, path);
}

}  // namespace molvane
