#pragma once

#include <sys/stat.h>

#include <string>

#include "Base/CaseError.hpp"
#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// Why a walk down a path ended early. Each carries the path of the component where it did.
enum class WalkErrorCase {
  missing,       ///< nothing of that name
  link,          ///< a symbolic link, which is not followed
  notDirectory,  ///< something else that holds nothing
};
[[nodiscard]] std::string describe(WalkErrorCase which, const std::string& path);
using WalkError = CaseError<WalkErrorCase>;

/// The folder that holds an item, held open, and the item's name in it. Acting on the pair acts in this very
/// folder, wherever the path leads by then.
struct HeldItem {
  FileDescriptor folder;
  std::string name;
};

/// Opens a folder, links followed: for roots that are trusted. Throws std::system_error.
[[nodiscard]] FileDescriptor openFolder(const std::string& path);

/// The same folder under a descriptor that shares nothing with the first: it is listed from its beginning
/// and has locks of its own. Throws std::system_error.
[[nodiscard]] FileDescriptor openedAnew(const FileDescriptor& folder);

/// Returns when the names in the folder have reached the disk as they are. Throws std::system_error.
void syncFolder(const FileDescriptor& folder);

/// Walks from `root`, which is trusted and may be reached through links, down to the folder that holds the
/// item at `path`, without following a link on the way. The item itself is not looked at.
///
/// `path` is standardised and lies below `root`. Throws WalkError, or std::system_error for whatever else
/// keeps a folder from being opened.
[[nodiscard]] HeldItem walkToItem(const std::string& root, const std::string& path);

/// Whether `name` in `folder` is the item that `item` describes, by device and inode: two names can stand for
/// one item where a volume ignores case. A link counts itself. False when the name cannot be looked at.
[[nodiscard]] bool isSameItem(const FileDescriptor& folder, const std::string& name, const struct stat& item);

/// Opens the held item itself, which must be a folder and no link. Throws as walkToItem does.
[[nodiscard]] FileDescriptor openItemFolder(const HeldItem& item);

}  // namespace molvane
