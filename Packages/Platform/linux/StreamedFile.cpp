#include "Platform/StreamedFile.hpp"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "Base/NSError.hpp"

namespace molvane {
namespace {

// What the cache holds already of the beginning of `bytes`; an error when it holds nothing, or nobody knows.
IoResult readCached(const FileDescriptor& file, std::span<std::byte> bytes, std::int64_t offset) {
  const iovec piece{bytes.data(), bytes.size()};
  const ssize_t count = ::preadv2(file.get(), &piece, 1, offset, RWF_NOWAIT);
  if (count < 0) return {0, errno};
  return {static_cast<std::size_t>(count), 0};
}

// Holds what is at the path without opening it. A link below /proc would lead to what this process has open,
// whatever folder that lies in.
FileDescriptor hold(const std::string& path) {
  open_how how{};
  how.flags = O_PATH | O_CLOEXEC;
  how.resolve = RESOLVE_NO_MAGICLINKS;
  FileDescriptor held(static_cast<int>(::syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how)));
  if (!held) throwErrno("open " + path);
  return held;
}

}  // namespace

FileDescriptor openStreamedFile(const std::string& path) {
  if (path.find('\0') != std::string::npos) throw std::system_error(EINVAL, std::generic_category());
  // Looked at before it is opened: opening a device may set something off.
  const FileDescriptor held = hold(path);
  struct stat status {};
  if (::fstat(held.get(), &status) != 0) throwErrno("fstat " + path);
  if (!S_ISREG(status.st_mode)) throw std::system_error(EINVAL, std::generic_category(), path);

  const std::string same = "/proc/self/fd/" + std::to_string(held.get());
  FileDescriptor file(::open(same.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) throwErrno("open " + path);
  // The reader asks for large pieces and ahead of time; what the system reads ahead of it could not be told
  // from what somebody else keeps in the cache.
  ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_RANDOM);
  return file;
}

IoResult readStreamed(const FileDescriptor& file, std::span<std::byte> bytes, std::int64_t offset) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const std::int64_t position = offset + static_cast<std::int64_t>(done);
    const std::span<std::byte> rest = bytes.subspan(done);
    const IoResult cached = readCached(file, rest, position);
    if (cached.count > 0) {
      done += cached.count;
      continue;
    }
    if (cached.error == 0) break;
    const ssize_t count = ::pread(file.get(), rest.data(), rest.size(), position);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return {0, errno};
    if (count == 0) break;
    if (cached.error == EAGAIN) ::posix_fadvise(file.get(), position, count, POSIX_FADV_DONTNEED);
    done += static_cast<std::size_t>(count);
  }
  return {done, 0};
}

void beginWritingOut(const FileDescriptor& file, std::int64_t offset, std::int64_t length) {
  ::sync_file_range(file.get(), offset, length, SYNC_FILE_RANGE_WRITE);
}

void writeOutAndForget(const FileDescriptor& file, std::int64_t offset, std::int64_t length) {
  ::sync_file_range(file.get(), offset, length,
                    SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
  ::posix_fadvise(file.get(), offset, length, POSIX_FADV_DONTNEED);
}

}  // namespace molvane
