#include "HelperKit/Applications/AppRemovalRunner.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "Base/NSError.hpp"
#include "HelperKit/Applications/AppRemovalPolicy.hpp"
#include "HelperKit/Applications/PersonalItem.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/TreeRemoval.hpp"

namespace molvane::AppRemovalRunner {

namespace {

using AppRemovalPolicy::Failure;
using AppRemovalPolicy::FailureCase;

HeldItem hold(const std::string& app, const std::string& home) {
  const std::string shared = AppRemovalPolicy::applicationsFolder();
  try {
    return app.starts_with(shared + "/") ? walkToItem(shared, app) : walkFromHome(home, app);
  } catch (const WalkError& error) {
    throw Failure(error.which() == WalkErrorCase::link ? FailureCase::symlink : FailureCase::missing, app);
  }
}

}  // namespace

void remove(const std::string& path, const std::string& home) {
  const std::string app = AppRemovalPolicy::validate(path, home);
  const HeldItem item = hold(app, home);
  struct stat status {};
  if (fstatat(item.folder.get(), item.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) throw Failure(FailureCase::missing, app);
    throwErrno("look at " + app);
  }
  if (S_ISLNK(status.st_mode)) throw Failure(FailureCase::symlink, app);
  if (!S_ISDIR(status.st_mode)) throw Failure(FailureCase::missing, app);
  if (AppRemovalPolicy::isUtilities(item.folder) || AppRemovalPolicy::isProtectedItem(item.folder, status)) {
    throw Failure(FailureCase::denied, app);
  }
  removeItem(item);
}

}  // namespace molvane::AppRemovalRunner
