#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>

#include "Base/Sha256.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/FileIdentity.hpp"

namespace molvane {

/// Whether the last change of a file lies so far before `now` that a later one gets another change time. File
/// systems count time in ticks, of up to two seconds; within one, two different contents look alike.
[[nodiscard]] bool isSettled(const FileIdentity& identity, std::time_t now) noexcept;

/// The identity of what `path` names; a link is followed. Throws std::system_error.
[[nodiscard]] FileIdentity identityAt(const std::string& path);

/// Whether that file, in that state, stands at `path` itself rather than behind a link.
[[nodiscard]] bool isUnchanged(const std::string& path, const FileIdentity& identity);

/// A plain file, open for reading. All functions that take one read the open file, whatever happens to its
/// path, and throw std::runtime_error when it was changed since it was opened, std::system_error when it
/// cannot be read.
struct PlainFile {
  FileDescriptor descriptor;
  FileIdentity identity;
};

/// Takes an open file. Throws std::runtime_error when it is not a plain file or larger than `maxSize` bytes.
[[nodiscard]] PlainFile plainFile(FileDescriptor descriptor, std::uint64_t maxSize);

/// Opens the file at `path`, without following a link there and without waiting for a pipe's other end.
/// Throws std::system_error when it cannot be opened, and as plainFile does.
[[nodiscard]] PlainFile openPlainFile(const std::string& path, std::uint64_t maxSize);

/// Opens a file that only root and `owner` can have written or put there: it and every folder above it belong
/// to one of them and nobody else may write to them, but for sticky folders, where others cannot touch what
/// is not theirs. No component of the path, which must be absolute, may be a link. Throws as openPlainFile
/// does.
[[nodiscard]] PlainFile openTrustedFile(const std::string& path, uid_t owner, std::uint64_t maxSize);

/// All bytes of the file.
[[nodiscard]] std::string readAll(const PlainFile& file);

/// The digest of all bytes of the file.
[[nodiscard]] Sha256Digest sha256(const PlainFile& file);

/// The path at which the system knows the open file. Throws std::runtime_error when the file no longer stands
/// there: it was removed, replaced, or opened in a file system that is not mounted here.
[[nodiscard]] std::string currentPath(const PlainFile& file);

}  // namespace molvane
