#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "HelperProtocol/dbus/Bytes.hpp"
#include "Platform/FileDescriptor.hpp"

// What the transport asks of the host's Unix sockets. Every function here that can fail throws
// std::system_error unless it says otherwise; a signal that interrupts a call is not a failure.
namespace molvane::dbus {

using Deadline = std::chrono::steady_clock::time_point;

/// A new stream socket of the Unix family, close-on-exec.
[[nodiscard]] FileDescriptor unixSocket();

/// Connects to the socket in the file system at `path`. Throws ETIMEDOUT when `timeout` passes while the
/// listener's queue is full, ENAMETOOLONG when the path does not fit.
[[nodiscard]] FileDescriptor connectTo(const std::string& path, std::chrono::milliseconds timeout);

/// Gives `socket` the name `path`, which must not exist.
void bindTo(const FileDescriptor& socket, const std::string& path);

/// Whether `socket` is a stream socket of the Unix family that listens.
[[nodiscard]] bool isListeningUnixSocket(const FileDescriptor& socket);

/// Lets acceptPeer find an empty queue instead of waiting.
void setNonBlocking(const FileDescriptor& listening);

/// The next peer in the queue, close-on-exec; nothing when there is none at the moment.
[[nodiscard]] std::optional<FileDescriptor> acceptPeer(const FileDescriptor& listening);

/// The effective user identifier that the process at the other end had when it connected, from the kernel.
[[nodiscard]] std::uint32_t peerUserIdentifier(const FileDescriptor& socket);

/// Waits until something can be read, or written; false when `deadline` came first.
[[nodiscard]] bool waitReadable(const FileDescriptor& socket, Deadline deadline);
[[nodiscard]] bool waitWritable(const FileDescriptor& socket, Deadline deadline);

/// Waits until one of two can be read and answers which, the first where both can; null when `deadline` came
/// first.
const FileDescriptor* waitForEither(const FileDescriptor& first, const FileDescriptor& second,
                                    Deadline deadline = Deadline::max());

/// Whether something can be read, or its end.
[[nodiscard]] bool isReadable(const FileDescriptor& descriptor);

/// Takes what has come, up to `capacity` bytes, and answers its size; 0 at the stream's end, nothing when
/// nothing is there. With `wait` it waits for the first byte, without a limit unless limitReceiving has set
/// one.
[[nodiscard]] std::optional<std::size_t> receiveSome(const FileDescriptor& socket, std::uint8_t* to,
                                                     std::size_t capacity, bool wait);

/// From now on receiveSome waits for `timeout` at the longest. Throws std::system_error.
void limitReceiving(const FileDescriptor& socket, std::chrono::milliseconds timeout);

/// Whether the other end was closed for good; what it sent before that may still be there to be read.
[[nodiscard]] bool hasHungUp(const FileDescriptor& socket);

/// Sends what fits right now and answers how much that was, 0 when nothing did. Raises no SIGPIPE.
[[nodiscard]] std::size_t sendSome(const FileDescriptor& socket, ByteView bytes);

/// Ends both directions: whoever reads at either end finds the end. Does not fail.
void shutDown(const FileDescriptor& socket) noexcept;

}  // namespace molvane::dbus
