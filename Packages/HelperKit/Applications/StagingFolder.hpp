#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// A file or folder that one request works on, gone with this object. While the object lives the item is
/// marked as in use, so that no sweep of another request takes it for a leftover. The mark ends with the
/// process.
class StagedItem {
 public:
  StagedItem(StagedItem&& other) noexcept;
  StagedItem& operator=(StagedItem&&) = delete;
  ~StagedItem();

  [[nodiscard]] const std::string& path() const { return path_; }

  /// The item, open: a folder for reading, a file for reading and writing.
  [[nodiscard]] const FileDescriptor& descriptor() const { return item_; }

  /// Leaves the item where it is when this object goes. The next sweep salvages it.
  void keep() { name_.clear(); }

 private:
  friend class StagingFolder;
  StagedItem(FileDescriptor folder, std::string name, std::string path, FileDescriptor item);

  FileDescriptor folder_;  // that holds the item
  std::string name_;       // in it; empty when the item is not to be removed
  std::string path_;
  FileDescriptor item_;
};

/// A folder in which requests keep private copies under random names. Several objects may stand for one
/// folder, in one process or in several; one thread at a time uses an object.
class StagingFolder {
 public:
  /// Makes the folder, with those above it, and gives it mode 0700 also where it exists.
  ///
  /// Throws std::system_error: as FileManager::createDirectory does, and EPERM when a folder above belongs
  /// to somebody else or lets others put something else in this one's place; an ExplainedSystemError for a
  /// place that is not safe. `path` is absolute.
  explicit StagingFolder(const std::string& path);

  /// The same kind of place in a folder that others may write to, for what must lie on its file system: every
  /// name begins with `prefix`, only folders are made, and `owner` is what is locked. `owner` must outlive
  /// this object.
  StagingFolder(const std::string& path, std::string prefix, const StagingFolder& owner);

  StagingFolder(const StagingFolder&) = delete;
  StagingFolder& operator=(const StagingFolder&) = delete;

  /// Takes out of a leftover folder what must not be lost; what it throws keeps the folder where it is.
  using Salvage = std::function<void(const FileDescriptor& leftover)>;

  /// Calls `salvage` with each folder that requests of a process that was killed have left, and removes
  /// nothing. What it throws is logged, with the folder's path. Throws nothing.
  void salvageLeftovers(const Salvage& salvage) const;

  /// Removes what requests of a process that was killed have left, folders after salvaging. What cannot be
  /// removed stays and is logged. Throws nothing for that.
  void sweep(const Salvage& salvage = nullptr) const;

  /// A new empty folder with mode 0700, or file with mode 0600, under a random name. Throws
  /// std::system_error; for a file that cannot be made, std::filesystem::filesystem_error with its path.
  [[nodiscard]] StagedItem makeFolder() const;
  [[nodiscard]] StagedItem makeFile(std::string_view suffix) const;

  /// While it lives, no other request makes, sweeps or locks in this folder. Held for a few look-ups
  /// and renames, and until these have reached the disk, never while bytes are copied or a tool runs.
  class Lock {
   public:
    explicit Lock(const FileDescriptor& folder);

   private:
    FileDescriptor folder_;
  };
  [[nodiscard]] Lock lock() const { return Lock(*locked_); }

 private:
  struct Leftover {
    std::string name;
    FileDescriptor item;  // marked as in use
  };
  [[nodiscard]] std::vector<Leftover> leftovers() const;
  // False when the leftover has to stay.
  [[nodiscard]] bool salvageOne(const Leftover& leftover, const Salvage& salvage) const;

  template <typename Open>
  StagedItem make(const std::string& name, Open open) const;
  [[nodiscard]] bool mayBeLeftover(std::string_view name) const;

  std::string path_;
  std::string prefix_;
  FileDescriptor folder_;
  const FileDescriptor* locked_;
};

}  // namespace molvane
