#include "Platform/linux/PlainFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "Base/NSError.hpp"

namespace molvane {

namespace {

constexpr std::time_t kSettledAfterSeconds = 3;
constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::size_t kPieceSize = std::size_t{256} * 1024;
constexpr int kOpenToRead = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

struct stat statusOf(const FileDescriptor& descriptor) {
  struct stat status {};
  if (fstat(descriptor.get(), &status) != 0) throwErrno("fstat");
  return status;
}

FileDescriptor openBelow(const FileDescriptor& folder, const std::string& name, int flags,
                         const std::string& path) {
  FileDescriptor descriptor(openat(folder.get(), name.c_str(), flags));
  if (!descriptor) throwErrno(path);
  return descriptor;
}

void requireGuarded(const FileDescriptor& descriptor, uid_t owner, const std::string& path) {
  const struct stat status = statusOf(descriptor);
  const bool ours = status.st_uid == 0 || status.st_uid == owner;
  const bool writableByOthers = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  const bool sticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
  if (!ours || (writableByOthers && !sticky))
    throw std::runtime_error("others may change something on the way to " + path);
}

// Hands the file to `consume` piece by piece.
template <typename Consume>
void readPieces(const PlainFile& file, std::size_t pieceSize, Consume consume) {
  const auto piece = std::make_unique_for_overwrite<char[]>(pieceSize);
  off_t position = 0;
  while (position < file.identity.size) {
    const auto wanted = std::min<off_t>(file.identity.size - position, static_cast<off_t>(pieceSize));
    const ssize_t got = pread(file.descriptor.get(), piece.get(), static_cast<std::size_t>(wanted), position);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throwErrno("read");
    if (got == 0) break;
    consume(std::string_view(piece.get(), static_cast<std::size_t>(got)));
    position += got;
  }
  if (fileIdentity(statusOf(file.descriptor)) != file.identity) {
    throw std::runtime_error("a file was changed while it was read");
  }
}

}  // namespace

bool isSettled(const FileIdentity& identity, std::time_t now) noexcept {
  return now - identity.statusChangedNanoseconds / kNanosecondsPerSecond >= kSettledAfterSeconds;
}

FileIdentity identityAt(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) throwErrno(path);
  return fileIdentity(status);
}

bool isUnchanged(const std::string& path, const FileIdentity& identity) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && fileIdentity(status) == identity;
}

PlainFile plainFile(FileDescriptor descriptor, std::uint64_t maxSize) {
  const struct stat status = statusOf(descriptor);
  if (!S_ISREG(status.st_mode)) throw std::runtime_error("not a plain file");
  if (static_cast<std::uint64_t>(status.st_size) > maxSize)
    throw std::runtime_error("a file that is too large");
  return {std::move(descriptor), fileIdentity(status)};
}

PlainFile openPlainFile(const std::string& path, std::uint64_t maxSize) {
  FileDescriptor descriptor(open(path.c_str(), kOpenToRead));
  if (!descriptor) throwErrno(path);
  return plainFile(std::move(descriptor), maxSize);
}

PlainFile openTrustedFile(const std::string& path, uid_t owner, std::uint64_t maxSize) {
  if (path.rfind('/', 0) != 0) throw std::runtime_error("not an absolute path: " + path);
  FileDescriptor folder(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder) throwErrno("/");
  requireGuarded(folder, owner, path);

  std::size_t begin = 1;
  for (std::size_t slash = path.find('/', begin); slash != std::string::npos; slash = path.find('/', begin)) {
    const std::string name = path.substr(begin, slash - begin);
    folder = openBelow(folder, name, O_PATH | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC, path);
    requireGuarded(folder, owner, path);
    begin = slash + 1;
  }
  FileDescriptor descriptor = openBelow(folder, path.substr(begin), kOpenToRead, path);
  requireGuarded(descriptor, owner, path);
  return plainFile(std::move(descriptor), maxSize);
}

std::string readAll(const PlainFile& file) {
  std::string bytes;
  bytes.reserve(static_cast<std::size_t>(file.identity.size));
  readPieces(file, std::min<std::size_t>(kPieceSize, static_cast<std::size_t>(file.identity.size)),
             [&](std::string_view piece) { bytes += piece; });
  return bytes;
}

Sha256Digest sha256(const PlainFile& file) {
  Sha256 hasher;
  readPieces(file, kPieceSize, [&](std::string_view piece) { hasher.update(piece); });
  return hasher.finish();
}

std::string currentPath(const PlainFile& file) {
  const std::string link = "/proc/self/fd/" + std::to_string(file.descriptor.get());
  std::array<char, PATH_MAX> path{};
  const ssize_t length = readlink(link.c_str(), path.data(), path.size());
  if (length < 0) throwErrno(link);
  std::string text(path.data(), static_cast<std::size_t>(length));
  // A removed file gets " (deleted)" behind its path, which another file may really be called.
  struct stat status {};
  if (lstat(text.c_str(), &status) != 0 || fileIdentity(status) != file.identity) {
    throw std::runtime_error("the file no longer stands at " + text);
  }
  return text;
}

}  // namespace molvane
