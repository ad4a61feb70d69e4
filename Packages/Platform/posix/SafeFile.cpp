#include "Platform/SafeFile.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include "Base/NSError.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/SecureRandom.hpp"

namespace molvane {

namespace {

constexpr std::string_view kSuffixLetters = "abcdefghijklmnopqrstuvwxyz234567";
constexpr std::size_t kSuffixLength = 12;

std::string temporaryPrefix(const std::string& finalName) { return "." + finalName + "."; }

std::string randomSuffix() {
  std::string suffix;
  for (const std::uint8_t byte : secureRandomBytes(kSuffixLength)) {
    suffix += kSuffixLetters[byte % kSuffixLetters.size()];
  }
  return suffix;
}

bool isTemporaryOf(std::string_view name, std::string_view prefix) {
  return name.starts_with(prefix) && name.size() == prefix.size() + kSuffixLength &&
         name.find_first_not_of(kSuffixLetters, prefix.size()) == std::string_view::npos;
}

struct CloseStream {
  void operator()(DIR* stream) const noexcept { ::closedir(stream); }
};

/// Nothing for a folder that cannot be listed.
std::vector<std::string> namesIn(const FileDescriptor& folder) {
  FileDescriptor again(::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::unique_ptr<DIR, CloseStream> stream(again ? ::fdopendir(again.get()) : nullptr);
  std::vector<std::string> names;
  if (!stream) return names;
  static_cast<void>(again.release());
  while (const dirent* const entry = ::readdir(stream.get())) names.emplace_back(entry->d_name);
  return names;
}

/// A file that is gone with this object unless it was given its final name.
class TemporaryFile {
 public:
  TemporaryFile(const FileDescriptor& folder, const std::string& finalName, mode_t mode)
      : folder_(folder.get()), name_(temporaryPrefix(finalName) + randomSuffix()) {
    file_.reset(::openat(folder_, name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!file_) throwErrno("create " + name_);
  }
  ~TemporaryFile() {
    if (!name_.empty()) ::unlinkat(folder_, name_.c_str(), 0);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  void write(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t count = ::write(file_.get(), bytes.data(), bytes.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) throwErrno("write " + name_);
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  void finish(mode_t mode) {
    // The umask may have taken permissions away; it never gives any.
    if (::fchmod(file_.get(), mode) != 0) throwErrno("set the mode of " + name_);
    if (::fsync(file_.get()) != 0) throwErrno("sync " + name_);
  }

  FileDescriptor rename(const std::string& finalName) {
    if (::renameat(folder_, name_.c_str(), folder_, finalName.c_str()) != 0)
      throwErrno("rename to " + finalName);
    name_.clear();
    return std::move(file_);
  }

 private:
  int folder_;
  std::string name_;
  FileDescriptor file_;
};

bool exists(const FileDescriptor& folder, const std::string& name) {
  struct stat status {};
  if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return true;
  if (errno != ENOENT) throwErrno("look at " + name);
  return false;
}

[[noreturn]] void fail(int errnoValue, const std::string& what) {
  throw std::system_error(errnoValue, std::generic_category(), what);
}

struct stat statusOf(const FileDescriptor& file, const std::string& name) {
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throwErrno("look at " + name);
  return status;
}

// All bytes of a file that states this size, which for one of the system's own is often 0; nothing when they
// are more than `mostBytes`.
std::optional<std::string> readWhole(const FileDescriptor& file, off_t size, std::size_t mostBytes,
                                     const std::string& name) {
  if (static_cast<std::uintmax_t>(size) > mostBytes) return std::nullopt;
  // One byte more than it may hold, in case it grows.
  constexpr std::size_t kLeast = 4096;
  std::string bytes(std::max(static_cast<std::size_t>(size) + 1, kLeast), '\0');
  std::size_t filled = 0;
  while (true) {
    const ssize_t count = ::read(file.get(), bytes.data() + filled, bytes.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throwErrno("read " + name);
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
    if (filled > mostBytes) return std::nullopt;
    if (filled == bytes.size()) bytes.resize(bytes.size() * 2);
  }
  bytes.resize(filled);
  return bytes;
}

std::optional<SmallFile> readSmallFileAt(int folder, const std::string& name, int extraFlags,
                                         std::size_t mostBytes) {
  // Not blocking, so that a FIFO of that name does not wait for a writer.
  const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | extraFlags;
  FileDescriptor file(::openat(folder, name.c_str(), flags));
  if (!file) {
    if (errno == ENOENT) return std::nullopt;
    throwErrno("open " + name);
  }
  const struct stat status = statusOf(file, name);
  if (!S_ISREG(status.st_mode)) fail(EINVAL, "read " + name);
  std::optional<std::string> bytes = readWhole(file, status.st_size, mostBytes, name);
  if (!bytes) fail(EFBIG, "read " + name);
  return SmallFile{{std::move(file), fileIdentity(status)}, *std::move(bytes)};
}

std::optional<std::string> bytesOf(std::optional<SmallFile> read) {
  if (!read) return std::nullopt;
  return std::move(read->bytes);
}

}  // namespace

HeldFile heldFile(FileDescriptor file, const std::string& name) {
  const FileIdentity identity = fileIdentity(statusOf(file, name));
  return {std::move(file), identity};
}

bool isAt(const std::string& path, const HeldFile& file) noexcept {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return errno == ENOENT && !file.descriptor;
  return file.descriptor && fileIdentity(status) == file.identity;
}

HeldFile replaceFile(const FileDescriptor& folder, const std::string& name, std::string_view bytes,
                     mode_t mode) {
  TemporaryFile file(folder, name, mode);
  file.write(bytes);
  file.finish(mode);
  FileDescriptor renamed = file.rename(name);
  syncFolder(folder);
  return heldFile(std::move(renamed), name);
}

void removeAbandonedTemporaries(const FileDescriptor& folder, const std::string& name) {
  const std::string prefix = temporaryPrefix(name);
  for (const std::string& found : namesIn(folder)) {
    if (isTemporaryOf(found, prefix)) ::unlinkat(folder.get(), found.c_str(), 0);
  }
}

std::optional<std::string> readSmallFile(const std::string& path, std::size_t mostBytes) {
  return bytesOf(readAndHold(path, mostBytes));
}

std::optional<SmallFile> readAndHold(const std::string& path, std::size_t mostBytes) {
  return readSmallFileAt(AT_FDCWD, path, 0, mostBytes);
}

std::optional<std::string> readSmallFile(const FileDescriptor& folder, const std::string& name,
                                         std::size_t mostBytes) {
  return bytesOf(readSmallFileAt(folder.get(), name, O_NOFOLLOW, mostBytes));
}

std::string describe(StrictReadErrorCase which, const std::string& name) {
  switch (which) {
    case StrictReadErrorCase::missing:
      return "Nothing called " + name;
    case StrictReadErrorCase::link:
      return "A link: " + name;
    case StrictReadErrorCase::notAFile:
      return "Not a file: " + name;
    case StrictReadErrorCase::wrongOwner:
      return "Belongs to somebody else: " + name;
    case StrictReadErrorCase::openToOthers:
      return "Open to others: " + name;
    case StrictReadErrorCase::tooLarge:
      return "Too large: " + name;
  }
  return name;
}

std::string readStrictly(const FileDescriptor& folder, const std::string& name,
                         const StrictReadRules& rules) {
  using enum StrictReadErrorCase;
  // Looked at before it is opened, because opening a device can have effects, and again afterwards.
  struct stat status {};
  if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) throw StrictReadError(missing, name);
    throwErrno("look at " + name);
  }
  if (S_ISLNK(status.st_mode)) throw StrictReadError(link, name);
  if (!S_ISREG(status.st_mode)) throw StrictReadError(notAFile, name);

  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const FileDescriptor file(::openat(folder.get(), name.c_str(), kFlags));
  if (!file) {
    if (errno == ELOOP) throw StrictReadError(link, name);
    throwErrno("open " + name);
  }
  status = statusOf(file, name);
  if (!S_ISREG(status.st_mode)) throw StrictReadError(notAFile, name);
  if (status.st_uid != rules.owner) throw StrictReadError(wrongOwner, name);
  if ((status.st_mode & 07777 & ~rules.widestMode) != 0) throw StrictReadError(openToOthers, name);
  std::optional<std::string> bytes = readWhole(file, status.st_size, rules.mostBytes, name);
  if (!bytes) throw StrictReadError(tooLarge, name);
  return *std::move(bytes);
}

std::string setFileAside(const FileDescriptor& folder, const std::string& name) {
  constexpr int kMostFiles = 1000;
  for (int number = 1; number <= kMostFiles; ++number) {
    std::string aside = name + ".broken";
    if (number > 1) aside.append("-").append(std::to_string(number));
    if (exists(folder, aside)) continue;
    if (::renameat(folder.get(), name.c_str(), folder.get(), aside.c_str()) != 0)
      throwErrno("rename to " + aside);
    syncFolder(folder);
    return aside;
  }
  fail(EEXIST, "set " + name + " aside");
}

}  // namespace molvane
