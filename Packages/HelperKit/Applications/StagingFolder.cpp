#include "HelperKit/Applications/StagingFolder.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "Base/NSError.hpp"
#include "Base/PathText.hpp"
#include "Base/Uuid.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/FileManager.hpp"
#include "Platform/Log.hpp"
#include "Platform/TreeRemoval.hpp"
#include "Platform/posix/TreeWalk.hpp"

namespace molvane {

namespace {

constexpr std::size_t kUuidLength = 36;
constexpr std::size_t kMostLeftovers = 1000;  // for one sweep; the next one takes the others
constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

void removeLogged(const FileDescriptor& folder, const std::string& name, const std::string& path) {
  try {
    removeItem({openedAnew(folder), name});
  } catch (const std::exception& error) {
    const auto* systemError = dynamic_cast<const std::system_error*>(&error);
    if (systemError != nullptr && systemError->code().value() == ENOENT) return;
    logLine("MolvaneHelper: cannot remove the staged copy " + path + ": " + error.what());
  }
}

[[noreturn]] void refuseFolderAbove(const std::string& above) {
  throw ExplainedSystemError(EPERM,
                             "Nothing can be installed safely: others may change the folder " + above + ".");
}

void makePrivateFolder(const std::string& path) try {
  FileManager::createDirectory(path, S_IRWXU);
} catch (const std::system_error& error) {
  const int code = error.code().value();
  if (code != EPERM && code != ELOOP && code != ENOTDIR) throw;
  throw ExplainedSystemError(code,
                             "Nothing can be installed safely: " + path + " is not a folder of the system.");
}

// Whether somebody other than root and this process's user could rename what is in the folder.
bool isOpenToOthers(const struct stat& folder) {
  const bool isWritable = (folder.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (folder.st_mode & S_ISVTX) == 0;
  return isWritable || (folder.st_uid != geteuid() && folder.st_uid != 0);
}

// Whoever can write to a parent could swap the staging folder for a link, and the tools work by path.
void requireTrustedFoldersAbove(const std::string& path) {
  std::string above = deletingLastPathComponent(path);
  if (FileManager::attributesOfItem(above).type != FileType::directory) refuseFolderAbove(above);
  for (;; above = deletingLastPathComponent(above)) {
    struct stat status {};
    if (stat(above.c_str(), &status) != 0) throwErrno("look at " + above);
    if (isOpenToOthers(status)) refuseFolderAbove(above);
    if (above.size() <= 1) return;
  }
}

// A folder takes the set-group-ID bit over from the one it is made in; it lets nobody in.
bool isOwnPrivateFolder(const FileDescriptor& folder) {
  struct stat status {};
  return fstat(folder.get(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
         (status.st_mode & 07777 & ~S_ISGID) == S_IRWXU;
}

}  // namespace

StagedItem::StagedItem(FileDescriptor folder, std::string name, std::string path, FileDescriptor item)
    : folder_(std::move(folder)), name_(std::move(name)), path_(std::move(path)), item_(std::move(item)) {}

StagedItem::StagedItem(StagedItem&& other) noexcept
    : folder_(std::move(other.folder_)),
      name_(std::exchange(other.name_, {})),
      path_(std::move(other.path_)),
      item_(std::move(other.item_)) {}

StagedItem::~StagedItem() {
  if (!name_.empty()) removeLogged(folder_, name_, path_);
}

StagingFolder::Lock::Lock(const FileDescriptor& folder) : folder_(openedAnew(folder)) {
  while (flock(folder_.get(), LOCK_EX) != 0) {
    if (errno != EINTR) throwErrno("lock a staging folder");
  }
}

StagingFolder::StagingFolder(const std::string& path) : path_(path), locked_(&folder_) {
  makePrivateFolder(path);
  requireTrustedFoldersAbove(path);
  folder_.reset(open(path.c_str(), kOpenFolder));
  if (!folder_) throwErrno("open " + path);
}

StagingFolder::StagingFolder(const std::string& path, std::string prefix, const StagingFolder& owner)
    : path_(path), prefix_(std::move(prefix)), folder_(openFolder(path)), locked_(&owner.folder_) {}

bool StagingFolder::mayBeLeftover(std::string_view name) const {
  if (!name.starts_with(prefix_)) return false;
  return Uuid::parse(name.substr(prefix_.size()).substr(0, kUuidLength)).has_value();
}

std::vector<StagingFolder::Leftover> StagingFolder::leftovers() const {
  std::vector<Leftover> found;
  const Lock locked = lock();
  TreeWalk walk(openedAnew(folder_), false);
  while (const std::optional<TreeEntry> entry = walk.next()) {
    if (found.size() == kMostLeftovers) break;
    if (!mayBeLeftover(entry->name)) continue;
    FileDescriptor item(openat(folder_.get(), entry->name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    // If it cannot be opened, even for lack of descriptors, assume that it is in use.
    if (!item || flock(item.get(), LOCK_EX | LOCK_NB) != 0) continue;
    // Where others can write, a name alone says nothing.
    if (!prefix_.empty() && !isOwnPrivateFolder(item)) continue;
    found.push_back({entry->name, std::move(item)});
  }
  return found;
}

bool StagingFolder::salvageOne(const Leftover& leftover, const Salvage& salvage) const try {
  if (salvage && isOwnPrivateFolder(leftover.item)) salvage(leftover.item);
  return true;
} catch (const std::exception& error) {
  logLine("MolvaneHelper: leaving " + path_ + "/" + leftover.name + ": " + error.what());
  return false;
}

void StagingFolder::salvageLeftovers(const Salvage& salvage) const try {
  for (const Leftover& leftover : leftovers()) static_cast<void>(salvageOne(leftover, salvage));
} catch (const std::exception& error) {
  logLine("MolvaneHelper: cannot salvage from " + path_ + ": " + error.what());
}

void StagingFolder::sweep(const Salvage& salvage) const try {
  for (const Leftover& leftover : leftovers()) {
    if (salvageOne(leftover, salvage)) removeLogged(folder_, leftover.name, path_ + "/" + leftover.name);
  }
} catch (const std::exception& error) {
  logLine("MolvaneHelper: cannot sweep " + path_ + ": " + error.what());
}

template <typename Open>
StagedItem StagingFolder::make(const std::string& name, Open open) const {
  const Lock locked = lock();
  FileDescriptor item = open(name);
  StagedItem made(openedAnew(folder_), name, path_ + "/" + name, std::move(item));
  if (flock(made.descriptor().get(), LOCK_EX | LOCK_NB) != 0) throwErrno("mark " + made.path());
  return made;
}

StagedItem StagingFolder::makeFolder() const {
  return make(prefix_ + Uuid::random().text(), [this](const std::string& name) {
    if (mkdirat(folder_.get(), name.c_str(), S_IRWXU) != 0) throwErrno("create " + name);
    FileDescriptor made(openat(folder_.get(), name.c_str(), kOpenFolder));
    if (!made) throwErrno("open " + name);
    if (!isOwnPrivateFolder(made)) {
      errno = EPERM;  // where others can write, it may be another by now
      throwErrno("create " + name);
    }
    return made;
  });
}

StagedItem StagingFolder::makeFile(std::string_view suffix) const {
  return make(prefix_ + Uuid::random().text() + std::string(suffix), [this](const std::string& name) {
    constexpr int kNew = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    FileDescriptor made(openat(folder_.get(), name.c_str(), kNew, S_IRUSR | S_IWUSR));
    if (!made) {
      const std::error_code reason(errno, std::generic_category());
      throw std::filesystem::filesystem_error("create a staged copy", path_ + "/" + name, reason);
    }
    return made;
  });
}

}  // namespace molvane
