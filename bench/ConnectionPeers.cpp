#include "ConnectionPeers.hpp"

#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "Base/NSError.hpp"
#include "HelperKit/Devices/DeviceJobRunner.hpp"
#include "HelperKit/Service/HelperPathPolicy.hpp"
#include "HelperKit/Service/PeerScopedHelper.hpp"
#include "HelperProtocol/dbus/Names.hpp"
#include "HelperProtocol/dbus/Sasl.hpp"
#include "HelperProtocol/dbus/SocketListener.hpp"

namespace molvane::bench {

namespace {

using std::chrono::seconds;

class TrustingCodeSigning final : public CodeSigning {
 public:
  PeerVerdict checkPeer(const FileDescriptor& /*socket*/, std::string_view /*requirement*/) override {
    return {{}, FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, ::getpid(), 0)))};
  }
  CodeVerdict checkFile(const std::string& /*path*/, std::string_view /*requirement*/) override { return {}; }
};

/// The helper's listener and what it needs.
class HelperServer final : public ListenerDelegate {
 public:
  explicit HelperServer(const std::string& path) : listener_(dbus::ListeningSocket(path), codeSigning_) {
    listener_.setDelegate(*this);
    listener_.resume();
  }

  bool shouldAcceptNewConnection(PeerConnection& connection) override {
    connection.setCodeSigningRequirement("identifier \"com.molvane.app\"");
    connection.setExportedObject(
        std::make_shared<PeerScopedHelper>(service_, connection.effectiveUserIdentifier()));
    connection.setInvalidationHandler([] {});
    connection.resume();
    return true;
  }

 private:
  std::shared_ptr<HelperService> service_ = std::make_shared<HelperService>(
      HelperPathPolicy::fixtureAllowlist("/nonexistent"), std::set<std::string>{},
      std::make_unique<DeviceJobRunner>([] { return DevicePolicy(); }),
      std::make_unique<CompanyAdminKeeper>("/nonexistent"));
  TrustingCodeSigning codeSigning_;
  dbus::SocketListener listener_;
};

void receiveAll(int fd, dbus::Bytes& bytes) {
  for (std::size_t have = 0; have < bytes.size();) {
    const ssize_t count = ::recv(fd, bytes.data() + have, bytes.size() - have, 0);
    if (count <= 0) throw std::runtime_error("the other end has gone");
    have += static_cast<std::size_t>(count);
  }
}

void sendAll(int fd, const dbus::Bytes& bytes) {
  if (::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("the other end does not read");
  }
}

void echoOn(FileDescriptor socket) {
  dbus::Bytes call(pingCall().size());
  const dbus::Bytes answer(pingAnswerSize());
  try {
    while (true) {
      receiveAll(socket.get(), call);
      sendAll(socket.get(), answer);
    }
  } catch (const std::runtime_error&) {
    // The client has left.
  }
}

dbus::Header pingHeader() {
  dbus::Header header;
  header.serial = 1;
  header.path = dbus::kHelperPath;
  header.interface = dbus::kHelperInterface;
  header.member = "Ping";
  return header;
}

}  // namespace

PinnedToOneCPU::PinnedToOneCPU() {
  if (::sched_getaffinity(0, sizeof before_, &before_) != 0) throwErrno("ask for the CPUs");
  cpu_set_t one;
  CPU_ZERO(&one);
  for (int cpu = 0; cpu < CPU_SETSIZE && CPU_COUNT(&one) == 0; ++cpu) {
    if (CPU_ISSET(cpu, &before_)) CPU_SET(cpu, &one);
  }
  if (::sched_setaffinity(0, sizeof one, &one) != 0) throwErrno("stay on one CPU");
}

PinnedToOneCPU::~PinnedToOneCPU() { ::sched_setaffinity(0, sizeof before_, &before_); }

ServerProcess::ServerProcess(const std::function<std::shared_ptr<void>()>& start) : pid_(-1) {
  int ready[2];
  if (::pipe(ready) != 0) throwErrno("make a pipe");
  FileDescriptor readEnd(ready[0]);
  FileDescriptor writeEnd(ready[1]);
  const pid_t parent = ::getpid();
  pid_ = ::fork();
  if (pid_ < 0) throwErrno("fork");
  if (pid_ == 0) {
    readEnd.reset();
    try {
      const std::shared_ptr<void> server = start();
      if (::write(writeEnd.get(), "r", 1) == 1) {
        while (::getppid() == parent) std::this_thread::sleep_for(seconds(1));
      }
    } catch (const std::exception& error) {
      std::fprintf(stderr, "molvane-bench: %s\n", error.what());
    }
    std::_Exit(1);
  }
  writeEnd.reset();
  char byte = 0;
  if (::read(readEnd.get(), &byte, 1) != 1) throw std::runtime_error("a server did not start");
}

ServerProcess::~ServerProcess() {
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

std::shared_ptr<void> serveHelper(const std::string& path) { return std::make_shared<HelperServer>(path); }

std::shared_ptr<void> serveEcho(const std::string& path) {
  auto socket = std::make_shared<FileDescriptor>(dbus::unixSocket());
  dbus::bindTo(*socket, path);
  if (::listen(socket->get(), 128) != 0) throwErrno("listen");
  std::thread([socket] {
    while (auto peer = dbus::acceptPeer(*socket)) {
      std::thread([peer = std::make_shared<FileDescriptor>(std::move(*peer))] {
        echoOn(std::move(*peer));
      }).detach();
    }
  }).detach();
  return socket;
}

const dbus::Bytes& pingCall() {
  static const dbus::Bytes call = [] {
    dbus::Bytes bytes;
    dbus::MessageBuilder(bytes, pingHeader()).finish();
    return bytes;
  }();
  return call;
}

std::size_t pingAnswerSize() {
  dbus::Bytes bytes;
  dbus::Header header;
  header.type = dbus::MessageType::methodReturn;
  header.serial = header.replySerial = 1;
  header.signature = "s";
  dbus::MessageBuilder message(bytes, header);
  message.body().string("pong");
  message.finish();
  return bytes.size();
}

EchoClient::EchoClient(const std::string& path)
    : socket_(dbus::connectTo(path, seconds(10))), answer_(pingAnswerSize()) {}

void EchoClient::echo() {
  sendAll(socket_.get(), pingCall());
  receiveAll(socket_.get(), answer_);
}

PrivateBus::PrivateBus() : path_(folder_.path() + "/bus") {
  const std::string configuration = folder_.path() + "/bus.conf";
  std::ofstream(configuration) << "<busconfig><type>session</type><listen>unix:path=" << path_ << R"(</listen>
<auth>EXTERNAL</auth>
<policy context="default">
  <allow send_destination="*"/><allow eavesdrop="true"/><allow own="*"/>
</policy></busconfig>)";
  daemon_ =
      std::make_unique<ChildProcess>(ChildProcess::Options{"/usr/bin/dbus-daemon",
                                                           {"--config-file=" + configuration, "--nofork"},
                                                           ChildProcess::StandardInput::null});
  const auto deadline = std::chrono::steady_clock::now() + seconds(10);
  while (true) {
    try {
      static_cast<void>(dbus::connectTo(path_, seconds(1)));
      return;
    } catch (const std::system_error&) {
      if (std::chrono::steady_clock::now() > deadline) throw;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
}

BusConnection::BusConnection(const std::string& path)
    : socket_(dbus::connectTo(path, seconds(10))), stream_(socket_, dbus::kMaxMessageSize) {
  stream_.send(dbus::asBytes(dbus::SaslClient::greeting()), seconds(10));
  dbus::SaslClient client;
  while (!client.done()) {
    stream_.fetch(std::chrono::steady_clock::now() + seconds(10));
    stream_.consume(client.receive(stream_.buffered()));
  }
  dbus::Header header;
  header.path = dbus::kBusPath;
  header.interface = header.destination = dbus::kBusInterface;
  header.member = "Hello";
  call(header, {});
}

void BusConnection::call(dbus::Header header, const std::string& text) {
  header.serial = ++serial_;
  dbus::MessageBuilder message(buffer_, header);
  if (header.signature == "su") {
    message.body().string(text);
    message.body().uint32(0);
  }
  message.finish();
  stream_.send(buffer_, seconds(10));
  while (const auto answer = stream_.receive(seconds(10))) {
    if (answer->replySerial != serial_) continue;
    if (answer->type == dbus::MessageType::error) throw std::runtime_error(std::string(answer->errorName));
    return;
  }
  throw std::runtime_error("the bus has gone");
}

void BusConnection::ping(const std::string& destination) {
  dbus::Header header = pingHeader();
  header.destination = destination;
  call(header, {});
}

void BusConnection::answerPings(const std::string& name) {
  dbus::Header request;
  request.path = dbus::kBusPath;
  request.interface = request.destination = dbus::kBusInterface;
  request.member = "RequestName";
  request.signature = "su";
  call(request, name);
  while (const auto message = stream_.receive(std::nullopt)) {
    if (message->type != dbus::MessageType::methodCall) continue;
    dbus::Header header;
    header.type = dbus::MessageType::methodReturn;
    header.serial = ++serial_;
    header.replySerial = message->serial;
    header.destination = message->sender;
    header.signature = "s";
    dbus::MessageBuilder answer(buffer_, header);
    answer.body().string("pong");
    answer.finish();
    stream_.send(buffer_, seconds(10));
  }
}

}  // namespace molvane::bench
