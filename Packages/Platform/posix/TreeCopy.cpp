#include "Platform/TreeCopy.hpp"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "Base/NSError.hpp"
#include "Platform/FileCopy.hpp"
#include "Platform/FileIdentity.hpp"
#include "Platform/posix/KernelCopy.hpp"
#include "Platform/posix/TreeWalk.hpp"

namespace molvane {

namespace {

constexpr std::size_t kMostLevels = 256;
constexpr mode_t kPermissionBits = 07777;

[[noreturn]] void fail(int error, const std::string& name) {
  errno = error;
  throwErrno("copy " + name);
}

struct stat statusOf(int fd, const std::string& name) {
  struct stat status {};
  if (fstat(fd, &status) != 0) throwErrno("look at " + name);
  return status;
}

// Access and modification time alike: when the copy was read is nobody's business.
std::array<timespec, 2> timesOf(const struct stat& status) {
  constexpr std::int64_t kNanoseconds = 1'000'000'000;
  const std::int64_t modified = fileIdentity(status).modifiedNanoseconds;
  timespec time{};
  time.tv_sec = static_cast<time_t>(modified / kNanoseconds);
  time.tv_nsec = static_cast<decltype(time.tv_nsec)>(modified % kNanoseconds);
  return {time, time};
}

// The owner before the mode, because a new owner takes the set-id bits away.
void copyAttributes(int from, int to, const std::string& name) {
  const struct stat status = statusOf(from, name);
  copyExtendedAttributes(from, to);
  if (fchown(to, status.st_uid, status.st_gid) != 0) throwErrno("set the owner of " + name);
  if (fchmod(to, status.st_mode & kPermissionBits) != 0) throwErrno("set the mode of " + name);
  if (futimens(to, timesOf(status).data()) != 0) throwErrno("set the times of " + name);
}

FileDescriptor makeFolder(int parent, const std::string& name) {
  if (mkdirat(parent, name.c_str(), S_IRWXU) != 0) throwErrno("create " + name);
  FileDescriptor folder(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) throwErrno("open " + name);
  return folder;
}

void copyLink(int from, int to, const std::string& name, const struct stat& status) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = readlinkat(from, name.c_str(), target.data(), target.size() - 1);
  if (length < 0) throwErrno("read the link " + name);
  if (symlinkat(target.data(), to, name.c_str()) != 0) throwErrno("create " + name);
  if (fchownat(to, name.c_str(), status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW) != 0) {
    throwErrno("set the owner of " + name);
  }
}

void copyFile(int from, int to, const std::string& name) {
  const FileDescriptor source(openat(from, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!source) throwErrno("open " + name);
  if (!S_ISREG(statusOf(source.get(), name).st_mode)) fail(EINVAL, name);
  constexpr int kNew = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const FileDescriptor copy(openat(to, name.c_str(), kNew, S_IRUSR | S_IWUSR));
  if (!copy) throwErrno("create " + name);
  copyToEnd(source, copy, std::numeric_limits<std::uint64_t>::max());
  copyAttributes(source.get(), copy.get(), name);
}

class TreeCopier {
 public:
  TreeCopier(FileDescriptor from, FileDescriptor to) : walk_(std::move(from), false) {
    levels_.push_back(std::move(to));
  }

  void run() {
    copyEntries();
    for (;;) {
      if (enterNext()) {
        copyEntries();
        continue;
      }
      // Last, because what is put into a folder changes its time.
      copyAttributes(walk_.folder(), levels_.back().get(), "a folder");
      if (walk_.depth() == 1) return;
      walk_.leave();
      levels_.pop_back();
    }
  }

 private:
  void copyEntries() {
    while (const std::optional<TreeEntry> entry = walk_.next()) {
      if (entry->type == EntryType::directory) {
        walk_.remember(*entry);
        continue;
      }
      const std::string name = entry->name;
      struct stat status {};
      if (fstatat(walk_.folder(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        throwErrno("look at " + name);
      if (S_ISLNK(status.st_mode)) {
        copyLink(walk_.folder(), levels_.back().get(), name, status);
      } else if (S_ISREG(status.st_mode)) {
        copyFile(walk_.folder(), levels_.back().get(), name);
      } else {
        fail(EINVAL, name);
      }
    }
  }

  bool enterNext() {
    const std::optional<std::string> name = walk_.takeRemembered();
    if (!name) return false;
    if (levels_.size() == kMostLevels) fail(ENAMETOOLONG, *name);
    if (const int error = walk_.enter(*name); error != 0) fail(error, *name);
    levels_.push_back(makeFolder(levels_.back().get(), *name));
    return true;
  }

  TreeWalk walk_;
  std::vector<FileDescriptor> levels_;  // the copies of the folders in which the walk stands, from the top
};

}  // namespace

void copyTree(const HeldItem& from, const HeldItem& to) {
  FileDescriptor source(
      openat(from.folder.get(), from.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!source) throwErrno("open " + from.name);
  TreeCopier(std::move(source), makeFolder(to.folder.get(), to.name)).run();
}

}  // namespace molvane
