#pragma once

#include <string>

#include "HelperKit/Applications/StagingFolder.hpp"

namespace molvane {

/// Puts staged applications into the applications folder, in place of an older copy if there is one. The
/// folder is held open, as others than root may write to it.
class ApplicationPlacement {
 public:
  /// `staging` must outlive this object. Throws std::system_error when there is no such folder.
  ApplicationPlacement(const StagingFolder& staging, const std::string& applications);

  /// What a leftover of a killed helper is asked before it is removed: an older copy that had been moved
  /// aside goes back to its place, if nothing is there and the copy that was to replace it still lies beside
  /// it. Throws std::system_error when it cannot go back; the leftover then holds the only copy.
  void salvage(const FileDescriptor& leftover) const;

  /// Removes leftovers in the applications folder itself, after salvaging.
  void sweep() const;

  /// Moves the application `name` out of the work folder into the applications folder, and an older copy of
  /// it (the same identifier) into the work folder under the name "previous-" and its own. Returns the path
  /// at which the application is now. On another file system it is copied into a private folder beside its
  /// place first. The copy has reached the disk before anything else changes.
  ///
  /// Throws ApplicationInstallPolicy::Failure (otherApp), or the std::system_error of a move, of the copying
  /// or of the disk; then the older copy is where it was. If its place was taken in that very moment, it
  /// stands beside it under its name with "previous-".
  std::string place(StagedItem& work, const std::string& name, const std::string& bundleID) const;

 private:
  void moveIn(StagedItem& work, const std::string& name, const std::string& bundleID) const;
  void putBack(StagedItem& work, const std::string& aside, const std::string& name) const;

  const StagingFolder& staging_;
  const std::string applications_;
  FileDescriptor folder_;
  StagingFolder beside_;
};

}  // namespace molvane
