#include "Platform/linux/testing/CodeSigningTools.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "Base/NSError.hpp"

namespace molvane::testing {

namespace {

namespace fs = std::filesystem;

constexpr int kPatienceMilliseconds = 60'000;

ChildProcess::Clock::time_point deadline() {
  return ChildProcess::Clock::now() + std::chrono::milliseconds(kPatienceMilliseconds);
}

FileDescriptor listenAt(const std::string& path) {
  FileDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throwErrno(path);
  if (listen(listener.get(), 1) != 0) throwErrno(path);
  return listener;
}

void waitForInput(const FileDescriptor& descriptor) {
  struct pollfd readable {
    descriptor.get(), POLLIN, 0
  };
  if (poll(&readable, 1, kPatienceMilliseconds) != 1) throw std::runtime_error("the peer does not answer");
}

FileDescriptor acceptFrom(const FileDescriptor& listener) {
  waitForInput(listener);
  FileDescriptor connection(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!connection) throwErrno("accept");
  return connection;
}

}  // namespace

void run(const std::string& executable, const std::vector<std::string>& arguments) {
  ChildProcess process({executable, arguments, ChildProcess::StandardInput::null});
  std::string output;
  const auto collect = [&](std::string_view piece) { output += piece; };
  const bool ended = process.pump(deadline(), collect) && process.drain(deadline(), collect);
  if (!ended || process.terminationStatus() != 0) throw std::runtime_error(executable + " failed: " + output);
}

Authority::Authority() { run(MOLVANE_SIGNING_TOOLS "/make-authority", {folder_.path() + "/authority"}); }

const Authority& Authority::shared() {
  static const Authority authority;
  return authority;
}

void Authority::sign(const std::string& executable, const std::string& identifier,
                     const std::vector<std::string>& leaves) const {
  std::vector<std::string> arguments = {executable, identifier};
  for (const std::string& leaf : leaves) arguments.push_back(path(leaf));
  run(MOLVANE_SIGNING_TOOLS "/sign", arguments);
}

SigningFolder::SigningFolder() {
  fs::create_directory(path("trust"));
  fs::create_directory(path("remembered"));
  fs::copy_file(Authority::shared().path("root.pem"), anchor());
}

std::string SigningFolder::addExecutable(const std::string& name, std::string_view difference) const {
  fs::copy_file(MOLVANE_SIGNING_PEER, path(name), fs::copy_options::overwrite_existing);
  std::ofstream(path(name), std::ios::app | std::ios::binary) << difference;
  return path(name);
}

std::string SigningFolder::addApp(const std::string& name, std::string_view difference) const {
  std::string executable = addExecutable(name, difference);
  Authority::shared().sign(executable);
  return executable;
}

std::unique_ptr<CmsCodeSigning> SigningFolder::checker(std::function<std::time_t()> ahead) const {
  CmsCodeSigning::Options options;
  options.anchorPath = anchor();
  options.anchorOwner = geteuid();
  options.rememberedFolder = path("remembered");
  if (ahead) options.now = [ahead = std::move(ahead)] { return std::time(nullptr) + ahead(); };
  return std::make_unique<CmsCodeSigning>(std::move(options));
}

ConnectedPeer::ConnectedPeer(const std::string& executable)
    : listener_(listenAt(folder_.path() + "/socket")),
      process_({executable, {folder_.path() + "/socket"}, ChildProcess::StandardInput::null}),
      socket_(acceptFrom(listener_)) {
  waitUntilReady();
}

void ConnectedPeer::tell(const std::string& command) {
  if (write(socket_.get(), command.data(), command.size()) != static_cast<ssize_t>(command.size()))
    throwErrno(command);
  waitUntilReady();
}

void ConnectedPeer::waitForExit() {
  if (!process_.pump(deadline(), [](std::string_view) {})) throw std::runtime_error("the peer does not exit");
}

void ConnectedPeer::waitUntilReady() const {
  waitForInput(socket_);
  std::array<char, 16> answer{};
  const ssize_t size = read(socket_.get(), answer.data(), answer.size());
  if (size < 0 || std::string_view(answer.data(), static_cast<std::size_t>(size)) != "ready") {
    throw std::runtime_error("the peer is not ready");
  }
}

}  // namespace molvane::testing
