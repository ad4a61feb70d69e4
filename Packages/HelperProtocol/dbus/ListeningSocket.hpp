#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "Platform/FileDescriptor.hpp"

namespace molvane::dbus {

/// A Unix stream socket that listens, and its name in the file system where it is ours.
class ListeningSocket {
 public:
  /// Takes a socket that somebody else bound, and that keeps its name. Throws std::system_error (EINVAL) when
  /// it is not a listening stream socket of the Unix family.
  explicit ListeningSocket(FileDescriptor socket);

  /// Binds a socket to `path` with the mode 0660 and listens. The name a dead listener left behind is
  /// replaced; the destructor removes ours. Throws std::system_error: EADDRINUSE when somebody listens there,
  /// EEXIST when something that is no socket has the name, or the errno of what went wrong.
  explicit ListeningSocket(std::string path);

  ListeningSocket(ListeningSocket&& other) noexcept;
  ListeningSocket& operator=(ListeningSocket&&) = delete;
  ~ListeningSocket();

  [[nodiscard]] const FileDescriptor& descriptor() const noexcept { return socket_; }

 private:
  /// Which file a name stood for, so that another's is not removed.
  struct Identity {
    dev_t device;
    ino_t inode;

    bool operator==(const Identity&) const = default;
  };

  [[nodiscard]] static std::optional<Identity> identityOf(const std::string& path) noexcept;

  FileDescriptor socket_;
  std::string path_;
  std::optional<Identity> identity_;
};

/// The listening socket that the service manager started this process with; nothing when it was started
/// without.
///
/// Reads LISTEN_PID, LISTEN_FDS and LISTEN_FDNAMES and removes them from the environment, so call it before
/// there are other threads. The descriptor is close-on-exec afterwards. Throws std::system_error (EINVAL)
/// when what was passed is not exactly one descriptor.
[[nodiscard]] std::optional<FileDescriptor> activationSocket();

}  // namespace molvane::dbus
