#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "Platform/FileAttributes.hpp"

/// The file system by path: for the questions of a policy, and for paths that only root can change. Whoever
/// acts on a path that somebody else may change meanwhile holds its folder instead (walkToItem).
///
/// Links on the way are followed by all functions; each says what it does with one at the end. A path with a
/// NUL exists nowhere, and is EINVAL for what throws. Any thread.
namespace molvane::FileManager {

/// Whether there is something at the path, following a link at its end: a dangling link is nothing.
[[nodiscard]] bool fileExists(const std::string& path);

/// Whether there is a folder at the path, following a link at its end.
[[nodiscard]] bool isDirectory(const std::string& path);

/// Whether there is a regular file at the path, following a link at its end, that this process may execute.
[[nodiscard]] bool isExecutableFile(const std::string& path);

/// The item's own attributes; a link at the end is not followed. Nothing when they cannot be read, for
/// whatever reason.
[[nodiscard]] std::optional<FileAttributes> findAttributes(const std::string& path);

/// The attributes of what is at the path, a link at the end followed. Nothing when they cannot be read.
[[nodiscard]] std::optional<FileAttributes> findTargetAttributes(const std::string& path);

/// The item's own attributes; throws std::system_error instead (ENOENT: nothing there).
[[nodiscard]] FileAttributes attributesOfItem(const std::string& path);

/// Makes a folder and those above it that are missing, all with `mode`; on return they have reached the disk.
/// The last one has exactly `mode` then, whatever the umask is and also when it existed, and was never wider
/// on the way there unless it was before. Throws std::system_error: EPERM when it existed and belongs to
/// somebody else, ELOOP or ENOTDIR when a link or a file stands at the path.
void createDirectory(const std::string& path, mode_t mode);

/// Makes sure that the path is a folder of this process's user with mode 0700. A missing one is made, without
/// those above it; one that exists is never changed. Throws std::system_error: EPERM when it belongs to
/// somebody else or has another mode, ELOOP or ENOTDIR when a link or a file stands there.
void ensurePrivateDirectory(const std::string& path);

/// Removes the item permanently, a folder with all that it holds; a link at the end is removed itself. For
/// items whose parent folder is trusted. Throws as the removal of a held item does (TreeRemoval.hpp).
void removeItem(const std::string& path);

}  // namespace molvane::FileManager
