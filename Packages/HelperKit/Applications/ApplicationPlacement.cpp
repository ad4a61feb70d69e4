#include "HelperKit/Applications/ApplicationPlacement.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

#include "Base/NSError.hpp"
#include "Base/PathText.hpp"
#include "HelperKit/Applications/ApplicationInstallPolicy.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/FileCopy.hpp"
#include "Platform/ItemMove.hpp"
#include "Platform/Log.hpp"
#include "Platform/TreeCopy.hpp"
#include "Platform/posix/TreeWalk.hpp"

namespace molvane {

namespace {

using ApplicationInstallPolicy::Failure;
using ApplicationInstallPolicy::FailureCase;

constexpr std::string_view kAside = "previous-";
// Not the end of an application's name, so that no copy which waits to be accepted can be called so.
constexpr std::string_view kExchange = ".exchange";
// Hidden, so that nobody takes it for an application.
constexpr const char* kBesidePrefix = ".com.molvane.helper-";
// How often a place that has changed since it was looked at is looked at anew.
constexpr int kMostRounds = 16;

// What kept an item from being moved to, from or with the one at `path`.
[[noreturn]] void failToMove(int error, const std::string& path) {
  if (error == EBUSY) {
    throw ExplainedSystemError(error, "A volume is mounted on " + path + ". Unmount it first.");
  }
  if (error == EXDEV)
    throw ExplainedSystemError(error, "The file system does not let " + path + " be replaced.");
  throw std::system_error(error, std::generic_category(), "move " + path);
}

// In a folder that nobody else can reach.
void renameIn(const FileDescriptor& folder, const std::string& name, const std::string& newName) {
  if (renameat(folder.get(), name.c_str(), folder.get(), newName.c_str()) != 0) throwErrno("rename " + name);
}

bool isFree(const FileDescriptor& folder, const std::string& name) {
  struct stat status {};
  if (fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return false;
  if (errno != ENOENT) throwErrno("look at " + name);
  return true;
}

std::vector<std::string> namesIn(const FileDescriptor& folder) {
  std::vector<std::string> names;
  TreeWalk walk(openedAnew(folder), true);
  while (const std::optional<TreeEntry> entry = walk.next()) names.emplace_back(entry->name);
  return names;
}

// Others may write to the applications folder, so only when it has come out of it is it certain what it is.
void requireOlderCopy(const StagedItem& work, const std::string& cameOut, const std::string& name,
                      const std::string& bundleID) {
  if (ApplicationInstallPolicy::bundleID(work.descriptor(), cameOut) != bundleID) {
    throw Failure(FailureCase::otherApp, name);
  }
}

}  // namespace

ApplicationPlacement::ApplicationPlacement(const StagingFolder& staging, const std::string& applications)
    : staging_(staging),
      applications_(applications),
      folder_(openFolder(applications)),
      beside_(applications, kBesidePrefix, staging) {}

StagingFolder::Salvage ApplicationPlacement::salvaging() const {
  return [this](const FileDescriptor& leftover) { salvageFrom(leftover); };
}

void ApplicationPlacement::salvage() const {
  staging_.salvageLeftovers(salvaging());
  beside_.salvageLeftovers(salvaging());
}

void ApplicationPlacement::sweep() const {
  staging_.sweep(salvaging());
  beside_.sweep(salvaging());
}

void ApplicationPlacement::salvageFrom(const FileDescriptor& leftover) const {
  const std::vector<std::string> names = namesIn(leftover);
  const StagingFolder::Lock lock = staging_.lock();
  for (const std::string& found : names) {
    if (found.starts_with(kAside)) salvageMovedAside(leftover, found);
    if (found.ends_with(kExchange)) salvageExchanged(leftover, found);
  }
}

void ApplicationPlacement::salvageMovedAside(const FileDescriptor& leftover, const std::string& found) const {
  const std::string name = found.substr(kAside.size());
  // The copy that was to take its place is still beside it. Otherwise the place was given away already, or
  // this is a copy, of an application of such a name, that nobody has accepted.
  if (name.ends_with(".app") && !isFree(leftover, name)) restore(leftover, found, name);
}

// What has this name is needed unless an application of the same identifier is in the place: the older copy
// still, or the new one already.
void ApplicationPlacement::salvageExchanged(const FileDescriptor& leftover, const std::string& found) const {
  const std::string name = found.substr(0, found.size() - kExchange.size());
  const std::optional<std::string> identifier = ApplicationInstallPolicy::bundleID(leftover, found);
  if (!identifier || ApplicationInstallPolicy::bundleID(folder_, name) != identifier) {
    return restore(leftover, found, name);
  }
  // A sweep that is killed half way must not leave something that looks needed.
  renameIn(leftover, found, std::string(kAside) + name);
}

void ApplicationPlacement::restore(const FileDescriptor& leftover, const std::string& found,
                                   const std::string& name) const {
  const int error = moveToFreePlace({leftover, found}, {folder_, name});
  if (error == EEXIST) {
    throw std::runtime_error("its " + found + " was not replaced, and something else is at " + pathOf(name));
  }
  if (error != 0) failToMove(error, pathOf(name));
  syncFolder(folder_);
  logLine("MolvaneHelper: put back " + pathOf(name) + " after an installation that was cut off");
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
  for (int round = 0; round < kMostRounds; ++round) {
    const auto destination = ApplicationInstallPolicy::destination(name, bundleID, applications_, folder_);
    if (destination.holdsOlderCopy ? exchange(work, name, bundleID) : moveToEmptyPlace(work, name)) return;
  }
  throw Failure(FailureCase::failed, pathOf(name) + " changes all the time. Try again.");
}

bool ApplicationPlacement::moveToEmptyPlace(const StagedItem& work, const std::string& name) const {
  const int error = moveToFreePlace({work.descriptor(), name}, {folder_, name});
  if (error == EEXIST) return false;
  if (error != 0) failToMove(error, pathOf(name));
  syncFolders(work);
  return true;
}

bool ApplicationPlacement::exchange(StagedItem& work, const std::string& name,
                                    const std::string& bundleID) const {
  const FileDescriptor& folder = work.descriptor();
  const std::string exchanged = name + std::string(kExchange);
  renameIn(folder, name, exchanged);
  struct stat copy {};
  if (fstatat(folder.get(), exchanged.c_str(), &copy, AT_SYMLINK_NOFOLLOW) != 0)
    throwErrno("look at " + name);
  const int error = exchangeItems({folder, exchanged}, {folder_, name});
  if (error != 0) {
    renameIn(folder, exchanged, name);
    if (error == ENOENT) return false;
    if (error == ENOTSUP) return replaceInTwoSteps(work, name, bundleID);
    failToMove(error, pathOf(name));
  }
  try {
    requireOlderCopy(work, exchanged, name, bundleID);
    syncFolders(work);
    renameIn(folder, exchanged, std::string(kAside) + name);
  } catch (...) {
    undoExchange(work, name, copy);
    throw;
  }
  return true;
}

// The new copy comes out again, or what somebody has put in its place since: that is kept.
void ApplicationPlacement::undoExchange(StagedItem& work, const std::string& name,
                                        const struct stat& copy) const {
  const FileDescriptor& folder = work.descriptor();
  const std::string exchanged = name + std::string(kExchange);
  if (exchangeItems({folder, exchanged}, {folder_, name}) == 0) {
    if (isSameItem(folder, exchanged, copy)) return renameIn(folder, exchanged, name);
  } else if (moveToFreePlace({folder, exchanged}, {folder_, name}) == 0) {
    return;
  }
  work.keep();
  logLine("MolvaneHelper: keeping what was " + pathOf(name) + " in " + work.path());
}

bool ApplicationPlacement::replaceInTwoSteps(StagedItem& work, const std::string& name,
                                             const std::string& bundleID) const {
  const FileDescriptor& folder = work.descriptor();
  const std::string aside = std::string(kAside) + name;
  const int moved = moveToFreePlace({folder_, name}, {folder, aside});
  if (moved == ENOENT) return false;
  if (moved != 0) failToMove(moved, pathOf(name));
  try {
    requireOlderCopy(work, aside, name, bundleID);
    const int error = moveToFreePlace({folder, name}, {folder_, name});
    if (error == EEXIST) throw Failure(FailureCase::otherApp, name);
    if (error != 0) failToMove(error, pathOf(name));
    syncFolders(work);
  } catch (...) {
    putBack(work, aside, name);
    throw;
  }
  return true;
}

void ApplicationPlacement::putBack(StagedItem& work, const std::string& aside,
                                   const std::string& name) const {
  const FileDescriptor& folder = work.descriptor();
  if (moveToFreePlace({folder, aside}, {folder_, name}) == 0) return;
  const int error = moveToFreePlace({folder, aside}, {folder_, aside});
  if (error != 0) work.keep();  // it holds the only copy
  logLine("MolvaneHelper: keeping what was " + pathOf(name) + " as " +
          (error == 0 ? applications_ : work.path()) + "/" + aside);
}

void ApplicationPlacement::syncFolders(const StagedItem& work) const {
  syncFolder(folder_);
  syncFolder(work.descriptor());
}

}  // namespace molvane
