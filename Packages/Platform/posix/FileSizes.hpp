#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <future>
#include <string>
#include <vector>

#include "Platform/FileDescriptor.hpp"
#include "Platform/posix/TreeWalk.hpp"

namespace molvane {

/// Files of one folder.
class FolderFiles {
 public:
  void add(const TreeEntry& file);
  [[nodiscard]] std::size_t count() const noexcept { return files_.size(); }

  /// The sizes of those that are regular files, added up. `folder` is the folder that they were listed in.
  /// Files that have vanished or become something else add nothing.
  ///
  /// They are asked for in the order of their inodes: where they are read from a disk, that is the order in
  /// which they lie there.
  [[nodiscard]] std::int64_t totalSize(int folder);

 private:
  struct File {
    ino_t inode = 0;
    std::size_t name = 0;  // where it begins in names_
  };

  std::vector<File> files_;
  std::string names_;  // each with a NUL behind it
};

/// Adds two sizes. A sum that does not fit ends the process.
[[nodiscard]] std::int64_t addSizes(std::int64_t a, std::int64_t b);

/// Adds up the sizes of files. Asking a file system for a size is mostly waiting, so helper threads ask as
/// well once there are many files; meanwhile a bounded number of folders is held open. One thread at a time
/// may use an object.
class FileSizes {
 public:
  /// Adds the sizes of these files of the open directory `folder`, sooner or later.
  void add(int folder, FolderFiles files);

  /// The sum of all that was added.
  [[nodiscard]] std::int64_t total();

 private:
  struct Batch {
    FileDescriptor folder;
    FolderFiles files;
  };

  static std::int64_t measure(std::vector<Batch> batches);
  void dispatch();
  bool giveToHelper();

  std::vector<Batch> waiting_;
  std::size_t filesWaiting_ = 0;
  std::int64_t total_ = 0;
  std::vector<std::future<std::int64_t>> helpers_;
};

}  // namespace molvane
