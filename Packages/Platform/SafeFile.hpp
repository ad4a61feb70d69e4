#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Base/CaseError.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/FileIdentity.hpp"

// Small files that must be there whole or not at all.

namespace molvane {

/// A file that is held open, so that no other gets its inode number, and the state in which it was. No
/// descriptor stands for no file.
struct HeldFile {
  FileDescriptor descriptor;
  FileIdentity identity;
};

/// The open file as it is now. Throws std::system_error; `name` is what it is called there.
[[nodiscard]] HeldFile heldFile(FileDescriptor file, const std::string& name);

/// Whether that file still lies at `path`, links followed, and has not been changed; for no file, whether
/// there is none. False when that cannot be told.
[[nodiscard]] bool isAt(const std::string& path, const HeldFile& file) noexcept;

/// Makes `name` in `folder` a file of exactly these bytes, with exactly this mode (the umask does not count)
/// and the caller as owner, in place
/// of whatever file had the name. Whoever reads it meanwhile, and whoever comes after a crash or a power cut
/// at any moment, finds either the old file or the new one, whole. On return the new one has reached the
/// disk. Returns the new file.
///
/// Throws std::system_error; then the old file stands (but for a failure to sync the folder, after which
/// either may) and nothing else is left. A crash can leave a temporary file beside it, of the same mode,
/// whose name begins with a dot and `name`. Concurrent writers are safe; the last one wins. A link
/// of that name is replaced, not followed.
HeldFile replaceFile(const FileDescriptor& folder, const std::string& name, std::string_view bytes,
                     mode_t mode);

/// Removes the temporary files that writers of `name` who were killed have left in `folder`. For whoever is
/// its only writer: one that is being written is removed too. What cannot be removed stays.
void removeAbandonedTemporaries(const FileDescriptor& folder, const std::string& name);

/// The bytes of the regular file at `path`, links followed; nothing when there is none of that name. Throws
/// std::system_error: EFBIG for more than `mostBytes`, EINVAL for what is no regular file.
[[nodiscard]] std::optional<std::string> readSmallFile(const std::string& path, std::size_t mostBytes);

/// The same, and the file in the state in which it was when reading it began.
struct SmallFile {
  HeldFile file;
  std::string bytes;
};
[[nodiscard]] std::optional<SmallFile> readAndHold(const std::string& path, std::size_t mostBytes);

/// The bytes of the regular file `name` in `folder`, which may be anybody's; nothing when there is none of
/// that name. A link is not followed: ELOOP. Throws as readSmallFile does.
[[nodiscard]] std::optional<std::string> readSmallFile(const FileDescriptor& folder, const std::string& name,
                                                       std::size_t mostBytes);

/// Why a file was not read strictly; each carries the file's name.
enum class StrictReadErrorCase {
  missing,
  link,          ///< a symbolic link, which is not followed
  notAFile,      ///< a folder, device or pipe
  wrongOwner,    ///< it belongs to another user
  openToOthers,  ///< it has a permission that it must not have
  tooLarge,
};
[[nodiscard]] std::string describe(StrictReadErrorCase which, const std::string& name);
using StrictReadError = CaseError<StrictReadErrorCase>;

/// What a file must be like to be believed.
struct StrictReadRules {
  uid_t owner = 0;
  mode_t widestMode = 0;  ///< the permission bits that it may have
  std::size_t mostBytes = 0;
};

/// The bytes of the regular file `name` in `folder`, all rules checked on the file that is read. Throws
/// StrictReadError, or std::system_error for whatever else keeps it from being read.
[[nodiscard]] std::string readStrictly(const FileDescriptor& folder, const std::string& name,
                                       const StrictReadRules& rules);

/// Gives the file `name` in `folder` a name of its own that no file has, `name` with ".broken" and, if need
/// be, a number behind it, and returns that name. Throws std::system_error.
[[nodiscard]] std::string setFileAside(const FileDescriptor& folder, const std::string& name);

}  // namespace molvane
