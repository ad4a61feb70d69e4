#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/FileDescriptor.hpp"

namespace molvane {

enum class EntryType { directory, regular, other };

struct TreeEntry {
  const char* name = nullptr;  ///< valid until the next entry is read
  EntryType type = EntryType::other;
  ino_t inode = 0;
};

/// Opens the folder `name` in the folder `parent` without following a link. With `staysOnMount`, a folder on
/// which another file system is mounted is refused with EXDEV. Empty, with errno set, when it cannot be
/// opened.
[[nodiscard]] FileDescriptor openSubfolder(int parent, const char* name, bool staysOnMount);

/// A depth-first walk over a tree of folders that holds each one open while it works in it, so that nothing
/// swapped under it leads it anywhere else. It needs a bounded number of descriptors however deep the tree
/// is: folders far up are closed and opened again through ".." of the one below, and must then be the same
/// folder.
///
/// The caller reads a folder to its end with next(), notes the subfolders with remember(), and goes down into
/// them afterwards: nothing of a folder's listing is kept while the walk is below it.
class TreeWalk {
 public:
  /// Starts in `top`. Throws std::system_error when it cannot be read.
  TreeWalk(FileDescriptor top, bool staysOnMount);

  /// The folder in which the walk stands.
  [[nodiscard]] int folder() const { return dirfd(levels_.back().stream.get()); }

  /// 1 in the top folder.
  [[nodiscard]] std::size_t depth() const { return levels_.size(); }

  /// The next entry of the folder, "." and ".." left out; nothing at its end. Throws std::system_error.
  [[nodiscard]] std::optional<TreeEntry> next();

  /// Notes a subfolder for later.
  void remember(const TreeEntry& subfolder) {
    levels_.back().remembered.push_back({subfolder.inode, subfolder.name});
  }

  /// Hands out a noted subfolder, in the order of the inodes: where they are read from a disk, that is the
  /// order in which they lie there.
  [[nodiscard]] std::optional<std::string> takeRemembered();

  /// Goes down into a subfolder. 0, or the errno that kept the walk where it is.
  [[nodiscard]] int enter(const std::string& subfolder);

  /// Goes back up and returns the name of the folder that was left. Not in the top folder. Throws
  /// std::system_error (ESTALE when the folder above is not where it was).
  std::string leave();

 private:
  struct CloseStream {
    void operator()(DIR* stream) const { closedir(stream); }
  };
  struct Subfolder {
    ino_t inode = 0;
    std::string name;
  };
  struct Level {
    std::string name;
    dev_t device = 0;
    ino_t inode = 0;
    std::unique_ptr<DIR, CloseStream> stream;  // empty while closed to save descriptors
    std::vector<Subfolder> remembered;
    bool isSorted = false;  // greatest inode first, so that the next one is at the end
  };

  static Level makeLevel(std::string name, FileDescriptor folder);
  void reopenLast(FileDescriptor folder);

  const bool staysOnMount_;
  std::vector<Level> levels_;
};

}  // namespace molvane
