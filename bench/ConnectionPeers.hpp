#pragma once

#include <sched.h>
#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

#include "HelperProtocol/dbus/Bytes.hpp"
#include "HelperProtocol/dbus/MessageStream.hpp"
#include "Platform/ChildProcess.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

// What the connection is measured against, each in a process of its own.
namespace molvane::bench {

/// Keeps the calling thread, and what it starts meanwhile, on one CPU.
class PinnedToOneCPU {
 public:
  PinnedToOneCPU();
  ~PinnedToOneCPU();
  PinnedToOneCPU(const PinnedToOneCPU&) = delete;
  PinnedToOneCPU& operator=(const PinnedToOneCPU&) = delete;

 private:
  cpu_set_t before_;
};

/// A process that serves until the object goes. `start` runs in it once and returns what has to stay.
class ServerProcess {
 public:
  explicit ServerProcess(const std::function<std::shared_ptr<void>()>& start);
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

 private:
  pid_t pid_;
};

/// The helper on a socket at `path`, over the connection that it ships with; every peer's code is good.
[[nodiscard]] std::shared_ptr<void> serveHelper(const std::string& path);

/// What a ping costs at the least: reads as many bytes as a call has and writes as many as its answer has, on
/// a thread for each connection, with blocking calls.
[[nodiscard]] std::shared_ptr<void> serveEcho(const std::string& path);

/// The bytes of a ping and of its answer.
[[nodiscard]] const dbus::Bytes& pingCall();
[[nodiscard]] std::size_t pingAnswerSize();

/// The other end of serveEcho.
class EchoClient {
 public:
  explicit EchoClient(const std::string& path);
  void echo();

 private:
  FileDescriptor socket_;
  dbus::Bytes answer_;
};

/// A dbus-daemon with a configuration of its own.
class PrivateBus {
 public:
  PrivateBus();

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  TemporaryFolder folder_;
  std::string path_;
  std::unique_ptr<ChildProcess> daemon_;
};

/// A connection to a bus through the codec that the helper's has, so that the difference is the bus.
class BusConnection {
 public:
  explicit BusConnection(const std::string& path);

  /// Calls Ping of whoever has the name `destination`, and waits for the answer.
  void ping(const std::string& destination);

  /// Takes the name `name` and answers every Ping; returns when the bus goes.
  void answerPings(const std::string& name);

 private:
  void call(dbus::Header header, const std::string& text);

  FileDescriptor socket_;
  dbus::MessageStream stream_;
  dbus::Bytes buffer_;
  std::uint32_t serial_ = 0;
};

}  // namespace molvane::bench
