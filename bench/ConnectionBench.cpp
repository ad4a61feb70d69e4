#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Benchmarks.hpp"
#include "ConnectionPeers.hpp"
#include "HelperProtocol/dbus/Proxy.hpp"
#include "Measuring.hpp"

namespace molvane::bench {

namespace {

using Clock = std::chrono::steady_clock;
using Action = std::function<void()>;

constexpr int kRounds = 15;
constexpr int kPings = 5'000;
constexpr int kConnects = 200;
constexpr int kClients = 64;
constexpr int kCallsPerClient = 500;
constexpr double kMicroseconds = 1e6;

void ping(dbus::Proxy& proxy) {
  bool answered = false;
  proxy.ping([&](const std::string& text) { answered = text == "pong"; });
  if (!answered) throw std::runtime_error("the helper answered something else");
}

/// The median of so many runs of `action`, in microseconds.
double medianOf(int runs, const Action& action) {
  std::vector<double> spans;
  for (int run = 0; run < runs; ++run) spans.push_back(secondsOf(action) * kMicroseconds);
  return median(std::move(spans));
}

/// Measures both by turns, after one round that does not count.
Comparison compare(std::string name, double atMost, const std::function<double()>& ours,
                   const std::function<double()>& peer) {
  std::vector<double> oursFigures;
  std::vector<double> peerFigures;
  for (int round = -1; round < kRounds; ++round) {
    const double our = ours();
    const double peers = peer();
    if (round < 0) continue;
    oursFigures.push_back(our);
    peerFigures.push_back(peers);
  }
  return {.name = std::move(name),
          .ours = median(std::move(oursFigures)),
          .peer = median(std::move(peerFigures)),
          .unit = "µs",
          .atMost = atMost};
}

/// Microseconds a call when many clients call at once, each on a connection and a thread of its own.
template <typename Client>
double microsecondsUnderLoad(const std::string& path, void (*call)(Client&)) {
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < kClients; ++i) clients.push_back(std::make_unique<Client>(path));
  const double span = secondsOf([&] {
    std::vector<std::thread> threads;
    for (const auto& client : clients) {
      threads.emplace_back([&client, call] {
        for (int i = 0; i < kCallsPerClient; ++i) call(*client);
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
  return span * kMicroseconds / (kClients * kCallsPerClient);
}

void echo(EchoClient& client) { client.echo(); }

std::vector<Comparison> benchPinned(const std::string& helperPath, const std::string& echoPath) {
  const PinnedToOneCPU pinned;
  const ServerProcess helper([&] { return serveHelper(helperPath); });
  const ServerProcess echoServer([&] { return serveEcho(echoPath); });
  const PrivateBus bus;
  const ServerProcess onBus([&] {
    auto connection = std::make_shared<BusConnection>(bus.path());
    std::thread([connection] { connection->answerPings("com.example.pong"); }).detach();
    return connection;
  });
  dbus::Proxy proxy(helperPath);
  EchoClient echoClient(echoPath);
  BusConnection busClient(bus.path());
  const auto awaitName = Clock::now() + std::chrono::seconds(10);
  while (true) {
    try {
      busClient.ping("com.example.pong");
      break;
    } catch (const std::runtime_error&) {
      if (Clock::now() > awaitName) throw;
    }
  }

  const auto ourPing = [&] { return medianOf(kPings, [&] { ping(proxy); }); };
  return {
      compare("ping, both ends on one CPU / bare socket echo", 1.6, ourPing,
              [&] { return medianOf(kPings, [&] { echoClient.echo(); }); }),
      compare("ping, both ends on one CPU / through dbus-daemon", 0.25, ourPing,
              [&] { return medianOf(kPings, [&] { busClient.ping("com.example.pong"); }); }),
      compare(
          "connect, handshake and first pong / connect and first echo", 3.5,
          [&] {
            return medianOf(kConnects, [&] {
              dbus::Proxy fresh(helperPath);
              ping(fresh);
            });
          },
          [&] { return medianOf(kConnects, [&] { EchoClient(echoPath).echo(); }); }),
  };
}

Comparison benchManyClients(const std::string& helperPath, const std::string& echoPath) {
  const ServerProcess helper([&] { return serveHelper(helperPath); });
  const ServerProcess echoServer([&] { return serveEcho(echoPath); });
  return compare(
      "a call when 64 clients call at once / bare socket echo", 2.0,
      [&] { return microsecondsUnderLoad<dbus::Proxy>(helperPath, ping); },
      [&] { return microsecondsUnderLoad<EchoClient>(echoPath, echo); });
}

}  // namespace

std::vector<Comparison> benchConnection() {
  const TemporaryFolder folder;
  std::vector<Comparison> rows = benchPinned(folder.path() + "/helper", folder.path() + "/echo");
  rows.push_back(benchManyClients(folder.path() + "/helper2", folder.path() + "/echo2"));
  return rows;
}

}  // namespace molvane::bench
