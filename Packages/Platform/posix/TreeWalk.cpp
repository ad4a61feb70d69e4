#include "Platform/posix/TreeWalk.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "Base/NSError.hpp"

namespace molvane {
namespace {

constexpr std::size_t kMostOpenLevels = 32;

EntryType typeOf(int folder, const dirent& entry) {
  switch (entry.d_type) {
    case DT_DIR:
      return EntryType::directory;
    case DT_REG:
      return EntryType::regular;
    case DT_UNKNOWN:
      break;
    default:
      return EntryType::other;
  }
  struct stat status {};
  if (fstatat(folder, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) return EntryType::other;
  if (S_ISDIR(status.st_mode)) return EntryType::directory;
  return S_ISREG(status.st_mode) ? EntryType::regular : EntryType::other;
}

bool isSelfOrParent(const char* name) { return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0; }

}  // namespace

TreeWalk::TreeWalk(FileDescriptor top, bool staysOnMount) : staysOnMount_(staysOnMount) {
  levels_.push_back(makeLevel("", std::move(top)));
}

TreeWalk::Level TreeWalk::makeLevel(std::string name, FileDescriptor folder) {
  struct stat status {};
  if (fstat(folder.get(), &status) != 0) throwErrno("fstat");
  Level level;
  level.name = std::move(name);
  level.device = status.st_dev;
  level.inode = status.st_ino;
  level.stream.reset(fdopendir(folder.get()));
  if (!level.stream) throwErrno("read a folder");
  static_cast<void>(folder.release());  // the stream closes it
  return level;
}

std::optional<TreeEntry> TreeWalk::next() {
  DIR* stream = levels_.back().stream.get();
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(stream);
    if (entry == nullptr) {
      if (errno != 0 && errno != ENOENT) throwErrno("read a folder");
      return std::nullopt;
    }
    if (!isSelfOrParent(entry->d_name)) {
      return TreeEntry{entry->d_name, typeOf(dirfd(stream), *entry), entry->d_ino};
    }
  }
}

std::optional<std::string> TreeWalk::takeRemembered() {
  Level& level = levels_.back();
  std::vector<Subfolder>& remembered = level.remembered;
  if (remembered.empty()) return std::nullopt;
  if (!level.isSorted) {
    std::sort(remembered.begin(), remembered.end(),
              [](const Subfolder& a, const Subfolder& b) { return a.inode > b.inode; });
    level.isSorted = true;
  }
  std::string name = std::move(remembered.back().name);
  remembered.pop_back();
  return name;
}

int TreeWalk::enter(const std::string& subfolder) try {
  FileDescriptor opened = openSubfolder(folder(), subfolder.c_str(), staysOnMount_);
  if (!opened) return errno;
  levels_.push_back(makeLevel(subfolder, std::move(opened)));
  if (levels_.size() > kMostOpenLevels) levels_[levels_.size() - kMostOpenLevels - 1].stream.reset();
  return 0;
} catch (const std::system_error& error) {
  return error.code().value();
}

std::string TreeWalk::leave() {
  FileDescriptor above;
  Level& parent = levels_[levels_.size() - 2];
  if (!parent.stream) {
    above.reset(openat(folder(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    if (!above) throwErrno("open the folder above");
  }
  std::string name = std::move(levels_.back().name);
  levels_.pop_back();
  if (above) reopenLast(std::move(above));
  return name;
}

void TreeWalk::reopenLast(FileDescriptor folder) {
  Level& level = levels_.back();
  Level reopened = makeLevel(level.name, std::move(folder));
  if (reopened.device != level.device || reopened.inode != level.inode) {
    // Somebody moved the folder below while the walk was in it.
    errno = ESTALE;
    throwErrno("go back up");
  }
  level.stream = std::move(reopened.stream);
}

}  // namespace molvane
