#include "HelperKit/Applications/StagedBundle.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

#include "Base/NSError.hpp"
#include "HelperKit/Applications/ApplicationInstallPolicy.hpp"
#include "Platform/posix/TreeWalk.hpp"

namespace molvane {

namespace {

using ApplicationInstallPolicy::Failure;
using ApplicationInstallPolicy::FailureCase;

class Inspection {
 public:
  Inspection(FileDescriptor top, const std::string& path, uid_t owner)
      : walk_(std::move(top), true), path_(path), owner_(owner) {}

  void run() {
    struct stat top {};
    if (fstat(walk_.folder(), &top) != 0) throwErrno("look at a staged copy");
    if (top.st_uid != owner_) throw Failure(FailureCase::notOwned, path_);
    inspectEntries();
    for (;;) {
      if (const std::optional<std::string> name = walk_.takeRemembered()) {
        if (const int error = walk_.enter(*name); error != 0) {
          throw std::system_error(error, std::generic_category(), "open " + *name);
        }
        inspectEntries();
      } else if (walk_.depth() == 1) {
        return;
      } else {
        walk_.leave();
      }
    }
  }

 private:
  void inspectEntries() {
    while (const std::optional<TreeEntry> entry = walk_.next()) {
      struct stat status {};
      if (fstatat(walk_.folder(), entry->name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        throwErrno("look at a staged copy");
      }
      if (status.st_uid != owner_) throw Failure(FailureCase::notOwned, path_);
      if (S_ISDIR(status.st_mode)) {
        walk_.remember(*entry);
      } else if (S_ISREG(status.st_mode)) {
        dropSetIdBits(entry->name, status.st_mode);
      } else if (!S_ISLNK(status.st_mode)) {
        throw Failure(FailureCase::notAnApp, path_);
      }
    }
  }

  void dropSetIdBits(const char* name, mode_t mode) const {
    constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO | S_ISVTX;
    if ((mode & (S_ISUID | S_ISGID)) == 0) return;
    if (fchmodat(walk_.folder(), name, mode & kPermissions, 0) != 0)
      throwErrno("set the mode of a staged copy");
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
