#include "HelperProtocol/dbus/Socket.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <span>
#include <system_error>

#include "Base/NSError.hpp"

namespace molvane::dbus {

namespace {

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    throw std::system_error(ENAMETOOLONG, std::generic_category(), "socket name " + path);
  }
  std::copy(path.begin(), path.end(), static_cast<char*>(address.sun_path));
  return address;
}

// `option` is SO_SNDTIMEO or SO_RCVTIMEO; no time is no limit.
void setLimit(const FileDescriptor& socket, int option, std::chrono::milliseconds timeout) {
  timeval limit{};
  limit.tv_sec = timeout.count() / 1000;
  limit.tv_usec = timeout.count() % 1000 * 1000;
  if (::setsockopt(socket.get(), SOL_SOCKET, option, &limit, sizeof limit) != 0) throwErrno("limit a socket");
}

/// Waits until something has happened to one of `entries`; false when `deadline` came first.
bool pollUntil(std::span<pollfd> entries, Deadline deadline) {
  while (true) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    const int milliseconds = static_cast<int>(std::min<std::int64_t>(left.count(), INT_MAX));
    const int ready = ::poll(entries.data(), entries.size(), milliseconds);
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) throwErrno("wait for a socket");
  }
}

bool waitFor(const FileDescriptor& socket, short events, Deadline deadline) {
  std::array<pollfd, 1> entries{{{socket.get(), events, 0}}};
  return pollUntil(entries, deadline);
}

short eventsNow(const FileDescriptor& descriptor, short events) {
  pollfd entry{descriptor.get(), events, 0};
  while (::poll(&entry, 1, 0) < 0) {
    if (errno != EINTR) throwErrno("look at a socket");
  }
  return entry.revents;
}

int option(const FileDescriptor& socket, int name) {
  int value = 0;
  socklen_t size = sizeof value;
  if (::getsockopt(socket.get(), SOL_SOCKET, name, &value, &size) != 0) throwErrno("ask about a socket");
  return value;
}

bool isRetry(int error) noexcept { return error == EAGAIN || error == EWOULDBLOCK; }

}  // namespace

FileDescriptor unixSocket() {
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket) throwErrno("make a socket");
  return socket;
}

FileDescriptor connectTo(const std::string& path, std::chrono::milliseconds timeout) {
  const sockaddr_un address = addressOf(path);
  FileDescriptor socket = unixSocket();
  // A full queue makes connect wait for as long as sending may take.
  setLimit(socket, SO_SNDTIMEO, timeout);
  while (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    if (errno == EINTR) continue;
    if (isRetry(errno)) errno = ETIMEDOUT;
    throwErrno("connect to " + path);
  }
  setLimit(socket, SO_SNDTIMEO, std::chrono::milliseconds(0));
  return socket;
}

void bindTo(const FileDescriptor& socket, const std::string& path) {
  const sockaddr_un address = addressOf(path);
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throwErrno("bind to " + path);
  }
}

bool isListeningUnixSocket(const FileDescriptor& socket) {
  return option(socket, SO_DOMAIN) == AF_UNIX && option(socket, SO_TYPE) == SOCK_STREAM &&
         option(socket, SO_ACCEPTCONN) != 0;
}

void setNonBlocking(const FileDescriptor& listening) {
  const int flags = ::fcntl(listening.get(), F_GETFL);
  if (flags < 0 || ::fcntl(listening.get(), F_SETFL, flags | O_NONBLOCK) != 0) throwErrno("prepare a socket");
}

std::optional<FileDescriptor> acceptPeer(const FileDescriptor& listening) {
  FileDescriptor peer(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (peer) return peer;
  if (isRetry(errno) || errno == EINTR || errno == ECONNABORTED) return std::nullopt;
  throwErrno("accept a peer");
}

std::uint32_t peerUserIdentifier(const FileDescriptor& socket) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
    throwErrno("ask who the peer is");
  return credentials.uid;
}

bool waitReadable(const FileDescriptor& socket, Deadline deadline) {
  return waitFor(socket, POLLIN, deadline);
}
bool waitWritable(const FileDescriptor& socket, Deadline deadline) {
  return waitFor(socket, POLLOUT, deadline);
}

const FileDescriptor* waitForEither(const FileDescriptor& first, const FileDescriptor& second,
                                    Deadline deadline) {
  std::array<pollfd, 2> entries{{{first.get(), POLLIN, 0}, {second.get(), POLLIN, 0}}};
  if (!pollUntil(entries, deadline)) return nullptr;
  return entries[0].revents != 0 ? &first : &second;
}

void limitReceiving(const FileDescriptor& socket, std::chrono::milliseconds timeout) {
  setLimit(socket, SO_RCVTIMEO, timeout);
}

bool isReadable(const FileDescriptor& descriptor) { return eventsNow(descriptor, POLLIN) != 0; }

std::optional<std::size_t> receiveSome(const FileDescriptor& socket, std::uint8_t* to, std::size_t capacity,
                                       bool wait) {
  while (true) {
    const ssize_t count = ::recv(socket.get(), to, capacity, wait ? 0 : MSG_DONTWAIT);
    if (count >= 0) return static_cast<std::size_t>(count);
    if (isRetry(errno)) return std::nullopt;
    if (errno != EINTR) throwErrno("receive");
  }
}

bool hasHungUp(const FileDescriptor& socket) { return (eventsNow(socket, 0) & POLLHUP) != 0; }

std::size_t sendSome(const FileDescriptor& socket, ByteView bytes) {
  while (true) {
    const ssize_t count = ::send(socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count >= 0) return static_cast<std::size_t>(count);
    if (isRetry(errno)) return 0;
    if (errno != EINTR) throwErrno("send");
  }
}

void shutDown(const FileDescriptor& socket) noexcept { ::shutdown(socket.get(), SHUT_RDWR); }

}  // namespace molvane::dbus
