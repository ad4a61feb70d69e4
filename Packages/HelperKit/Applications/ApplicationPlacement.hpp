#pragma once

#include <sys/stat.h>

#include <string>

#include "HelperKit/Applications/StagingFolder.hpp"

namespace molvane {

/// Puts staged applications into the applications folder, in place of an older copy if there is one. The
/// folder is held open, as others than root may write to it.
///
/// What a work folder holds tells how far a request had come, also after a power cut:
///
/// - "Foo.app" alone is a copy that may not have been accepted;
/// - "Foo.app.exchange" is an accepted copy, or what it has changed places with;
/// - "previous-Foo.app" beside "Foo.app" is what was moved aside and not replaced;
/// - "previous-Foo.app" alone was replaced, or is a copy that may not have been accepted.
class ApplicationPlacement {
 public:
  /// `staging` must outlive this object. Throws std::system_error when there is no such folder.
  ApplicationPlacement(const StagingFolder& staging, const std::string& applications);

  /// Takes what was not replaced out of the leftovers of killed helpers, in the staging folder and in the
  /// applications folder: it goes back to its place when nothing is there. When something is, it stays where
  /// it is, and the log says where. Removes nothing. Throws nothing.
  void salvage() const;

  /// Salvages, and removes the leftovers that hold nothing of the kind any more. Throws nothing.
  void sweep() const;

  /// Moves the application `name` out of the work folder into the applications folder, and an older copy of
  /// it (the same identifier) into the work folder under the name "previous-" and its own. Returns the path
  /// at which the application is now. On another file system it is copied into a private folder beside its
  /// place first. The copy has reached the disk before anything else changes, and the change has when this
  /// returns.
  ///
  /// The two change places in one step. Where the system cannot do that there is a moment in which the place
  /// is empty.
  ///
  /// Throws ApplicationInstallPolicy::Failure (otherApp, isProtected; failed for a place that keeps
  /// changing), or the std::system_error of a move, of the copying or of the disk; then what was in the place
  /// is there. If something else has come there in that very moment, it stands beside it under its name with
  /// "previous-", or stays in the work folder; the log says where.
  std::string place(StagedItem& work, const std::string& name, const std::string& bundleID) const;

 private:
  [[nodiscard]] StagingFolder::Salvage salvaging() const;
  void salvageFrom(const FileDescriptor& leftover) const;
  void salvageMovedAside(const FileDescriptor& leftover, const std::string& found) const;
  void salvageExchanged(const FileDescriptor& leftover, const std::string& found) const;
  void restore(const FileDescriptor& leftover, const std::string& found, const std::string& name) const;

  void moveIn(StagedItem& work, const std::string& name, const std::string& bundleID) const;
  // These answer false when the place is not as it was looked at; nothing has changed then.
  bool moveToEmptyPlace(const StagedItem& work, const std::string& name) const;
  bool exchange(StagedItem& work, const std::string& name, const std::string& bundleID) const;
  bool replaceInTwoSteps(StagedItem& work, const std::string& name, const std::string& bundleID) const;
  void undoExchange(StagedItem& work, const std::string& name, const struct stat& copy) const;
  void putBack(StagedItem& work, const std::string& aside, const std::string& name) const;
  void syncFolders(const StagedItem& work) const;
  [[nodiscard]] std::string pathOf(const std::string& name) const { return applications_ + "/" + name; }

  const StagingFolder& staging_;
  const std::string applications_;
  FileDescriptor folder_;
  StagingFolder beside_;
};

}  // namespace molvane
