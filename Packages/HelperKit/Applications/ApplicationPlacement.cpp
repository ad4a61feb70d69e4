#include "HelperKit/Applications/ApplicationPlacement.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

#include "Base/PathText.hpp"
#include "HelperKit/Applications/ApplicationInstallPolicy.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/FileCopy.hpp"
#include "Platform/Log.hpp"
#include "Platform/TreeCopy.hpp"
#include "Platform/posix/TreeWalk.hpp"

namespace molvane {

namespace {

using ApplicationInstallPolicy::Failure;
using ApplicationInstallPolicy::FailureCase;

constexpr std::string_view kAside = "previous-";
// Hidden, so that nobody takes it for an application.
constexpr const char* kBesidePrefix = ".com.molvane.helper-";

int moveItem(const FileDescriptor& from, const std::string& name, const FileDescriptor& to,
             const std::string& newName) {
  return renameat(from.get(), name.c_str(), to.get(), newName.c_str()) == 0 ? 0 : errno;
}

[[noreturn]] void fail(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

bool isFree(const FileDescriptor& folder, const std::string& name) {
  struct stat status {};
  if (fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return false;
  if (errno != ENOENT) fail(errno, "look at " + name);
  return true;
}

}  // namespace

ApplicationPlacement::ApplicationPlacement(const StagingFolder& staging, const std::string& applications)
    : staging_(staging),
      applications_(applications),
      folder_(openFolder(applications)),
      beside_(applications, kBesidePrefix, staging) {}

void ApplicationPlacement::salvage(const FileDescriptor& leftover) const {
  std::vector<std::string> previous;
  TreeWalk walk(openedAnew(leftover), true);
  while (const std::optional<TreeEntry> entry = walk.next()) {
    if (std::string_view(entry->name).starts_with(kAside)) previous.emplace_back(entry->name);
  }
  const StagingFolder::Lock lock = staging_.lock();
  for (const std::string& aside : previous) {
    const std::string name = aside.substr(kAside.size());
    // The copy that was to take its place is still beside it. Otherwise the place was given away already, or
    // this is a copy, of an application of such a name, that nobody has accepted.
    if (!name.ends_with(".app") || isFree(leftover, name) || !isFree(folder_, name)) continue;
    const int error = moveItem(leftover, aside, folder_, name);
    if (error != 0) fail(error, "put back " + applications_ + "/" + name);
    logLine("MolvaneHelper: put back " + applications_ + "/" + name +
            " after an installation that was cut off");
  }
}

void ApplicationPlacement::sweep() const {
  beside_.sweep([this](const FileDescriptor& leftover) { salvage(leftover); });
}

std::string ApplicationPlacement::place(StagedItem& work, const std::string& name,
                                        const std::string& bundleID) const {
  try {
    moveIn(work, name, bundleID);
  } catch (const std::system_error& error) {
    if (error.code().value() != EXDEV) throw;
    StagedItem beside = beside_.makeFolder();
    copyTree({openedAnew(work.descriptor()), name}, {openedAnew(beside.descriptor()), name});
    moveIn(beside, name, bundleID);
  }
  return appendingPathComponent(applications_, name);
}

// The lock keeps two requests for one application from each finding the place empty.
void ApplicationPlacement::moveIn(StagedItem& work, const std::string& name,
                                  const std::string& bundleID) const {
  // The older copy is removed for good as soon as this one is in its place.
  syncFileSystem(work.descriptor());
  const StagingFolder::Lock lock = staging_.lock();
  const auto destination = ApplicationInstallPolicy::destination(name, bundleID, applications_, folder_);
  const std::string aside = std::string(kAside) + name;
  if (destination.holdsOlderCopy) {
    const int error = moveItem(folder_, name, work.descriptor(), aside);
    if (error != 0) fail(error, "move " + destination.path + " aside");
  }
  try {
    // Others may write to the applications folder, so only now it is certain what was moved.
    if (destination.holdsOlderCopy &&
        ApplicationInstallPolicy::bundleID(work.descriptor(), aside) != bundleID) {
      throw Failure(FailureCase::otherApp, name);
    }
    const int error = moveItem(work.descriptor(), name, folder_, name);
    if (error != 0) fail(error, "move to " + destination.path);
  } catch (...) {
    if (destination.holdsOlderCopy) putBack(work, aside, name);
    throw;
  }
}

void ApplicationPlacement::putBack(StagedItem& work, const std::string& aside,
                                   const std::string& name) const {
  if (moveItem(work.descriptor(), aside, folder_, name) == 0) return;
  const int error = moveItem(work.descriptor(), aside, folder_, aside);
  if (error == 0) return;
  work.keep();  // it holds the only copy
  logLine("MolvaneHelper: cannot put " + name + " back: " + std::generic_category().message(error));
}

}  // namespace molvane
