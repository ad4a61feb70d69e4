#pragma once

#include "Platform/DirectoryHandle.hpp"

namespace molvane {

/// Copies the folder `from`, with all that it holds, to `to`, where nothing of that name may be: files and
/// folders with their owners, modes, times and, as far as the receiving file system takes them, extended
/// attributes; links as links, with their owners.
///
/// Works relative to the folders that it holds and follows no link on either side. Nobody else may change
/// `from` meanwhile. Throws std::system_error: EEXIST when `to` is there, EINVAL for what is no file, folder
/// or link, ENAMETOOLONG for folders more than 256 deep, otherwise what kept it from reading or writing. What
/// has been copied by then stays.
void copyTree(const HeldItem& from, const HeldItem& to);

}  // namespace molvane
