#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "Base/NSError.hpp"
#include "Benchmarks.hpp"
#include "ConnectionPeers.hpp"
#include "HelperProtocol/dbus/ListeningSocket.hpp"
#include "HelperProtocol/dbus/Proxy.hpp"
#include "Measuring.hpp"

// The installed daemon as it ships, with the real check of its peer's signature. Runs in the Mac-shaped root
// only, where this program is signed as the app; scripts/bench sees to that.

namespace molvane::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kStarts = 60;
constexpr int kConnects = 2'000;
constexpr double kMostIdleMegabytes = 8;

const std::string kSocket = "/run/molvane-bench.sock";

// A server started as the service manager does: it finds the listening socket as descriptor 3.
class StartedServer {
 public:
  StartedServer(const std::string& executable, const dbus::ListeningSocket& socket) : pid_(fork()) {
    if (pid_ < 0) throwErrno("fork");
    if (pid_ > 0) return;
    const int passed = dup(socket.descriptor().get());  // without the close-on-exec flag, whatever its number
    if (passed != 3) dup2(passed, 3);
    fcntl(3, F_SETFD, 0);
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDERR_FILENO);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    setenv("LISTEN_FDS", "1", 1);
    execl(executable.c_str(), executable.c_str(), nullptr);
    _exit(127);
  }
  ~StartedServer() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  StartedServer(const StartedServer&) = delete;
  StartedServer& operator=(const StartedServer&) = delete;

  [[nodiscard]] double residentMegabytes() const {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    for (std::string key; status >> key;) {
      double kilobytes = 0;
      if (key == "VmRSS:" && status >> kilobytes) return kilobytes * 1024 / 1e6;
    }
    throw std::runtime_error("no resident size");
  }

 private:
  const pid_t pid_;
};

void pingOnce(const std::string& path) {
  bool answered = false;
  dbus::Proxy(path).ping([&](const std::string& text) { answered = text == "pong"; });
  if (!answered) throw std::runtime_error("no pong");
}

double millisecondsToFirstPong(const std::string& executable) {
  const dbus::ListeningSocket socket(kSocket);
  const Clock::time_point start = Clock::now();
  const StartedServer server(executable, socket);
  pingOnce(kSocket);
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// What the daemon remembers of the clients that it has checked; see RememberedChecks.
const std::string kCheckedPeers = "/run/com.molvane.helper/checked-peers.json";

std::vector<Comparison> compareStart(const std::string& daemon) {
  const std::string peerServer =
      std::filesystem::read_symlink("/proc/self/exe").parent_path() / "molvane-bench-sdbus";
  std::vector<double> first;
  std::vector<double> ours;
  std::vector<double> peer;
  for (int round = -3; round < kStarts; ++round) {
    std::filesystem::remove(kCheckedPeers);
    const double firsts = millisecondsToFirstPong(daemon);
    const double our = millisecondsToFirstPong(daemon);
    const double peers = millisecondsToFirstPong(peerServer);
    if (round < 0) continue;
    first.push_back(firsts);
    ours.push_back(our);
    peer.push_back(peers);
  }
  return {{.name = "daemon start, exec to first pong, client known / minimal sd-bus server",
           .ours = median(ours),
           .peer = median(peer),
           .unit = "ms",
           .atMost = 1.5},
          {.name = "the same, client never checked before / minimal sd-bus server",
           .ours = median(first),
           .peer = median(peer),
           .unit = "ms",
           .atMost = std::numeric_limits<double>::infinity()}};
}

std::vector<Comparison> compareConnecting(const std::string& daemon) {
  const PinnedToOneCPU pinned;
  const std::string echoPath = "/run/molvane-bench-echo.sock";
  const ServerProcess echoServer([&] { return serveEcho(echoPath); });
  const dbus::ListeningSocket socket(kSocket);
  const StartedServer server(daemon, socket);
  Comparison connecting =
      compareInTurns({.name = "connect, signature check remembered, first pong / connect and first echo",
                      .unit = "µs",
                      .atMost = 3.5},
                     {.counted = kConnects, .warmUps = 50}, {[] { pingOnce(kSocket); }},
                     {[&] { EchoClient(echoPath).echo(); }});
  unlink(echoPath.c_str());
  return {std::move(connecting),
          {.name = "resident memory when idle / 8 MB",
           .ours = server.residentMegabytes(),
           .peer = kMostIdleMegabytes,
           .unit = "MB",
           .atMost = 1.0}};
}

}  // namespace

std::vector<Comparison> benchDaemon() {
  const char* daemon = std::getenv("MACROOT_HELPER");
  if (daemon == nullptr)
    throw std::runtime_error("the daemon is measured in the Mac-shaped root; see scripts/bench");
  std::vector<Comparison> rows = compareStart(daemon);
  for (Comparison& row : compareConnecting(daemon)) rows.push_back(std::move(row));
  return rows;
}

}  // namespace molvane::bench
