#include "Platform/FileManager.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <system_error>

#include "Base/NSError.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/TreeRemoval.hpp"

namespace molvane::FileManager {
namespace {

constexpr mode_t kPrivateMode = S_IRWXU;
constexpr mode_t kPermissionBits = 07777;

[[noreturn]] void fail(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

bool holdsNul(const std::string& path) { return path.find('\0') != std::string::npos; }

// A slash at the end would make the system follow a link that stands there.
std::string plainPath(std::string path) {
  if (holdsNul(path)) fail(EINVAL, "a path with a NUL");
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::optional<struct stat> statusOfTarget(const std::string& path) {
  struct stat status {};
  if (holdsNul(path) || stat(path.c_str(), &status) != 0) return std::nullopt;
  return status;
}

FileType typeOf(mode_t mode) {
  if (S_ISREG(mode)) return FileType::regular;
  if (S_ISDIR(mode)) return FileType::directory;
  if (S_ISLNK(mode)) return FileType::symbolicLink;
  return FileType::other;
}

FileAttributes attributesFrom(const struct stat& status) {
  return {.type = typeOf(status.st_mode),
          .size = static_cast<std::int64_t>(status.st_size),
          .owner = status.st_uid,
          .group = status.st_gid,
          .mode = static_cast<std::uint32_t>(status.st_mode & kPermissionBits),
          .device = static_cast<std::uint64_t>(status.st_dev),
          .inode = static_cast<std::uint64_t>(status.st_ino)};
}

// True when the folder is new.
bool makeFolder(const std::string& path, mode_t mode) {
  if (mkdir(path.c_str(), mode) == 0) return true;
  if (errno != EEXIST) throwErrno("create the folder " + path);
  return false;
}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// A new folder that is lost in a power cut takes along what was synced inside it.
void syncFolderOf(const std::string& path) { syncFolder(openFolder(folderOf(path))); }

// A folder of the process's own, held open so that its mode is set and checked on what it is now.
class OwnFolder {
 public:
  explicit OwnFolder(const std::string& path)
      : path_(path), folder_(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
    if (!folder_) throwErrno("open the folder " + path_);
    if (status().st_uid != geteuid()) fail(EPERM, path_ + " belongs to somebody else");
  }

  [[nodiscard]] mode_t mode() const { return status().st_mode & kPermissionBits; }

  void setMode(mode_t mode) const {
    if (this->mode() != mode && fchmod(folder_.get(), mode) != 0) throwErrno("set the mode of " + path_);
  }

 private:
  [[nodiscard]] struct stat status() const {
    struct stat status {};
    if (fstat(folder_.get(), &status) != 0) throwErrno("look at " + path_);
    return status;
  }

  const std::string& path_;
  FileDescriptor folder_;
};

}  // namespace

bool fileExists(const std::string& path) { return statusOfTarget(path).has_value(); }

bool isDirectory(const std::string& path) {
  const auto status = statusOfTarget(path);
  return status && S_ISDIR(status->st_mode);
}

bool isExecutableFile(const std::string& path) {
  const auto status = statusOfTarget(path);
  return status && S_ISREG(status->st_mode) && faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

std::optional<FileAttributes> findAttributes(const std::string& path) {
  struct stat status {};
  if (holdsNul(path) || lstat(path.c_str(), &status) != 0) return std::nullopt;
  return attributesFrom(status);
}

std::optional<FileAttributes> findTargetAttributes(const std::string& path) {
  const auto status = statusOfTarget(path);
  if (!status) return std::nullopt;
  return attributesFrom(*status);
}

FileAttributes attributesOfItem(const std::string& path) {
  if (holdsNul(path)) fail(EINVAL, "a path with a NUL");
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) throwErrno("look at " + path);
  return attributesFrom(status);
}

void createDirectory(const std::string& path, mode_t mode) {
  const std::string folder = plainPath(path);
  for (std::size_t end = folder.find('/', 1); end != std::string::npos; end = folder.find('/', end + 1)) {
    const std::string above = folder.substr(0, end);
    if (!isDirectory(above) && makeFolder(above, mode)) syncFolderOf(above);
  }
  const bool isNew = makeFolder(folder, mode);
  OwnFolder(folder).setMode(mode);
  if (isNew) syncFolderOf(folder);
}

void ensurePrivateDirectory(const std::string& path) {
  const std::string folder = plainPath(path);
  const bool isNew = makeFolder(folder, kPrivateMode);
  const OwnFolder own(folder);
  if (isNew) own.setMode(kPrivateMode);  // the umask may have made it narrower still
  if (own.mode() != kPrivateMode) fail(EPERM, folder + " is open to others");
}

void removeItem(const std::string& path) {
  const std::string item = plainPath(path);
  const std::string name = item.substr(item.rfind('/') + 1);  // npos + 1 is 0
  if (name.empty() || name == "." || name == "..") fail(EINVAL, "remove " + path);
  molvane::removeItem({openFolder(folderOf(item)), name});
}

}  // namespace molvane::FileManager
