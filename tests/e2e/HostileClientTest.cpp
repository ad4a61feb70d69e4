#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <random>
#include <vector>

#include "Harness.hpp"
#include "RawClient.hpp"

namespace molvane::e2e {
namespace {

using namespace std::string_view_literals;

// Clients that mean harm, or are broken. Whatever they do, somebody else is served, by the same helper, and
// nothing of them stays behind in it.
class HostileClient : public testing::Test {
 protected:
  void SetUp() override {
    endHelper();
    log_ = std::make_unique<LogFollower>(kHelperLog);
    expectServed();
    helper_ = helperProcess().value();
    // What the helper keeps for its tools from the first one on is not left behind by anybody.
    ++connections_;
    EXPECT_EQ(molvanectl({"task", "run", "purge-memory"}).status, 0);
    awaitEnds();
    descriptors_ = openDescriptors(helper_);
  }

  void TearDown() override {
    expectServed();
    EXPECT_EQ(helperProcess(), helper_);
    awaitEnds();
    EXPECT_TRUE(eventually([this] { return openDescriptors(helper_) <= descriptors_; }))
        << openDescriptors(helper_) << " descriptors, and before there were " << descriptors_;
  }

  void expectServed() {
    ++connections_;
    const Outcome outcome = molvanectl({"ping"}, kBob);
    EXPECT_EQ(outcome.out, "pong\n") << testing::PrintToString(outcome);
  }

  std::unique_ptr<RawClient> connect() {
    ++connections_;
    return std::make_unique<RawClient>();
  }

  std::unique_ptr<RawClient> connectAndAuthenticate() {
    auto client = connect();
    client->authenticate();
    return client;
  }

  // Waits until the helper has seen the end of every connection so far. All have to be closed on this side.
  void awaitEnds() {
    for (; connections_ > 0; --connections_) log_->waitFor("MolvaneHelper: connection invalidated");
  }

  pid_t helper_ = 0;
  int connections_ = 0;

 private:
  std::unique_ptr<LogFollower> log_;
  std::size_t descriptors_ = 0;
};

TEST_F(HostileClient, SaysNothing) {
  const auto silent = connect();
  expectServed();
}

TEST_F(HostileClient, StopsInTheMiddle) {
  const std::string call = methodCall(1, "Ping");
  const std::vector<std::string_view> handshakes{"\0"sv, "\0AUTH EXT"sv, "\0AUTH EXTERNAL 30\r\n"sv};
  for (const auto part : handshakes) {
    const auto client = connect();
    ASSERT_TRUE(client->send(part));
    expectServed();
  }
  for (const std::size_t size : {std::size_t{1}, std::size_t{15}, std::size_t{16}, call.size() - 1}) {
    const auto client = connectAndAuthenticate();
    ASSERT_TRUE(client->send(call.substr(0, size)));
    expectServed();
  }
}

TEST_F(HostileClient, SendsGarbage) {
  std::mt19937 random(20240229);
  for (int round = 0; round < 20; ++round) {
    const auto client = connect();
    if (round % 2 == 1) client->authenticate();
    std::string garbage(1 + random() % 70000, '\0');
    for (char& byte : garbage) byte = static_cast<char>(random());
    client->send(garbage);
  }
}

TEST_F(HostileClient, SendsAStringOfAHundredMebibytes) {
  const std::string huge(std::size_t{100} << 20, 'a');
  const std::string message = methodCall(1, "RunMaintenanceTask", "s", marshalled(huge));
  const auto client = connectAndAuthenticate();
  ASSERT_TRUE(client->send(message));
  const auto reply = client->receive();
  ASSERT_TRUE(reply && reply->error);
  EXPECT_EQ(stringAt(reply->body, 0), "A request may have 65536 bytes at most.");
  EXPECT_TRUE(client->seesEnd());
}

TEST_F(HostileClient, SendsAThousandCallsAtOnce) {
  constexpr std::uint32_t kCalls = 1000;
  const auto client = connectAndAuthenticate();
  std::string calls;
  for (std::uint32_t serial = 1; serial <= kCalls; ++serial) calls += methodCall(serial, "Ping");
  ASSERT_TRUE(client->send(calls));
  for (std::uint32_t serial = 1; serial <= kCalls; ++serial) {
    const auto reply = client->receive();
    ASSERT_TRUE(reply) << "after " << serial - 1 << " replies";
    ASSERT_EQ(reply->to, serial);
    ASSERT_FALSE(reply->error);
    ASSERT_EQ(stringAt(reply->body, 0), "pong");
  }
}

// The replies are far more than the kernel keeps for a reader that does not read.
TEST_F(HostileClient, NeverReadsItsReplies) {
  const ToolBehaviour floods("purge", "flood 4\n");
  LogFollower tools(kToolLog);
  const auto client = connectAndAuthenticate();
  for (std::uint32_t serial = 1; serial <= 3; ++serial) {
    ASSERT_TRUE(client->send(methodCall(serial, "RunMaintenanceTask", "s", marshalled("purge-memory"))));
  }
  tools.waitFor("/usr/sbin/purge");
  expectServed();
}

TEST_F(HostileClient, VanishesWhileItsTaskRuns) {
  const ToolBehaviour hangs("purge", "hang\n");
  LogFollower tools(kToolLog);
  {
    const auto client = connectAndAuthenticate();
    ASSERT_TRUE(client->send(methodCall(1, "RunMaintenanceTask", "s", marshalled("purge-memory"))));
    tools.waitFor("/usr/sbin/purge");
  }
  expectServed();

  // The tool is not torn down with its client; when it ends, so does the connection.
  const Outcome tool = run({"/usr/bin/pgrep", "-P", std::to_string(helper_)});
  ASSERT_EQ(tool.status, 0) << "the helper's tool is gone";
  ::kill(std::stoi(tool.out), SIGKILL);
}

TEST_F(HostileClient, ComesTwoHundredTimesAtOnce) {
  constexpr int kConnections = 200;
  int served = 0;
  {
    std::vector<std::unique_ptr<RawClient>> crowd;
    for (int i = 0; i < kConnections; ++i) crowd.push_back(std::make_unique<RawClient>());
    expectServed();
    for (auto& client : crowd) {
      try {
        client->authenticate();
        if (stringAt(client->call("Ping").body, 0) == "pong") ++served;
      } catch (const std::runtime_error&) {
        EXPECT_TRUE(client->seesEnd()) << "neither served nor turned away";
      }
    }
  }
  EXPECT_GT(served, 0);
  RecordProperty("served", served);
  connections_ += served;
}

// As deep as a document may be nested: who reads it does so on a connection's small stack.
TEST_F(HostileClient, NestsItsDocumentsDeeply) {
  const std::string deep = std::string(512, '[') + std::string(512, ']');
  const std::string bytes = marshalled(deep).substr(0, sizeof(std::uint32_t) + deep.size());
  const auto client = connectAndAuthenticate();
  for (const auto member : {"StartDeviceJob", "ManageLocalAccount", "ApplyCompanyAdmin"}) {
    EXPECT_TRUE(client->call(member, "ay", bytes).error);
  }
}

// Nobody signed this one: the system's own interpreter, with the right group.
TEST_F(HostileClient, UnsignedProgramIsNotListenedTo) {
  const std::string script =
      "use IO::Socket::UNIX; $SIG{PIPE} = 'IGNORE';"
      "my $s = IO::Socket::UNIX->new(Peer => $ARGV[0]) or die \"connect: $!\";"
      "print $s \"\\0AUTH EXTERNAL\\r\\nDATA\\r\\nBEGIN\\r\\n\", 'l' x 100000; $s->flush;"
      "my $got = ''; while (sysread($s, my $piece, 4096)) { $got .= $piece } print length $got;";
  const Outcome outcome = run({"/usr/bin/perl", "-e", script, kSocket});
  EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
  EXPECT_EQ(outcome.out, "0") << "it was answered";
  ++connections_;
}

}  // namespace
}  // namespace molvane::e2e
