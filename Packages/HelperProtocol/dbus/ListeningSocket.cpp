#include "HelperProtocol/dbus/ListeningSocket.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "Base/NSError.hpp"
#include "HelperProtocol/dbus/Socket.hpp"

namespace molvane::dbus {

namespace {

constexpr mode_t kMode = 0660;
constexpr int kBacklog = 128;
constexpr std::chrono::seconds kProbeTimeout{1};

[[noreturn]] void fail(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

/// Removes a name again unless it is kept.
class TemporaryName {
 public:
  explicit TemporaryName(std::string path) noexcept : path_(std::move(path)) {}
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(const TemporaryName&) = delete;
  ~TemporaryName() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }

  void renameTo(const std::string& path) {
    if (std::rename(path_.c_str(), path.c_str()) != 0) throwErrno("rename to " + path);
    path_.clear();
  }

 private:
  std::string path_;
};

/// Throws unless `path` may be taken: there is nothing, or the socket of somebody who is gone.
void expectFree(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return;
    throwErrno("look at " + path);
  }
  if (!S_ISSOCK(status.st_mode)) fail(EEXIST, path + " is no socket");
  try {
    static_cast<void>(connectTo(path, kProbeTimeout));
  } catch (const std::system_error& error) {
    if (error.code().value() == ECONNREFUSED || error.code().value() == ENOENT) return;
    if (error.code().value() != ETIMEDOUT) throw;
  }
  fail(EADDRINUSE, "somebody listens at " + path);
}

}  // namespace

ListeningSocket::ListeningSocket(FileDescriptor socket) : socket_(std::move(socket)) {
  if (!isListeningUnixSocket(socket_)) fail(EINVAL, "the socket passed to this process does not listen");
}

ListeningSocket::ListeningSocket(std::string path) : socket_(unixSocket()), path_(std::move(path)) {
  expectFree(path_);
  // Under a name of its own the socket gets its mode and listens before anybody can find it, and takes the
  // name that clients know in one step.
  const std::string temporary = path_ + "." + std::to_string(::getpid());
  ::unlink(temporary.c_str());
  bindTo(socket_, temporary);
  TemporaryName name(temporary);
  if (::chmod(temporary.c_str(), kMode) != 0) throwErrno("set the mode of " + temporary);
  if (::listen(socket_.get(), kBacklog) != 0) throwErrno("listen at " + path_);
  identity_ = identityOf(temporary);
  name.renameTo(path_);
}

ListeningSocket::ListeningSocket(ListeningSocket&& other) noexcept
    : socket_(std::move(other.socket_)),
      path_(std::exchange(other.path_, {})),
      identity_(std::exchange(other.identity_, std::nullopt)) {}

ListeningSocket::~ListeningSocket() {
  if (identity_ && identityOf(path_) == identity_) ::unlink(path_.c_str());
}

std::optional<ListeningSocket::Identity> ListeningSocket::identityOf(const std::string& path) noexcept {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
  return Identity{status.st_dev, status.st_ino};
}

}  // namespace molvane::dbus
