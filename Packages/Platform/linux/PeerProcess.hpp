#pragma once

#include <string>
#include <utility>

#include "Platform/FileDescriptor.hpp"
#include "Platform/linux/PlainFile.hpp"

namespace molvane {

/// The process at the other end of a connected Unix socket: the one that connected, whoever holds the socket
/// now.
///
/// On kernels before 6.5 the process can only be looked up by the number that it had when it connected. There
/// a peer that hands its socket on and exits may be taken for a newer process of the same number.
class PeerProcess {
 public:
  /// Throws std::system_error or std::runtime_error when the process is gone or not visible here.
  explicit PeerProcess(const FileDescriptor& socket);

  /// Which file the process is running. Throws std::system_error.
  [[nodiscard]] FileIdentity executableIdentity() const { return identityAt(link_); }

  /// Opens the file that the process is running. Throws std::system_error.
  [[nodiscard]] FileDescriptor openExecutable() const;

  /// Throws std::runtime_error when the process has exited. As long as it has not, what the other functions
  /// answered before was about this process and not about a later one of the same number.
  void requireAlive() const;

  /// The descriptor that pins the process; it can be read as soon as the process has exited.
  [[nodiscard]] FileDescriptor exitWatch() && { return std::move(process_); }

 private:
  FileDescriptor process_;
  std::string link_;  // to its executable, below /proc
};

}  // namespace molvane
