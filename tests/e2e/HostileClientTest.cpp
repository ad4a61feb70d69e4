#include <gtest/gtest.h>

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

TEST_F(HostileClient, StopsInTheMiddleOrSendsGarbage) {
  std::mt19937 random(20240229);
  std::string garbage(70000, '\0');
  for (char& byte : garbage) byte = static_cast<char>(random());
  std::vector<std::unique_ptr<RawClient>> clients;
  for (const auto part :
       {""sv, "\0"sv, "\0AUTH EXT"sv, "\0AUTH EXTERNAL 30\r\n"sv, std::string_view(garbage)}) {
    clients.push_back(connect());
    clients.back()->send(part);
  }
  const std::string call = methodCall(1, "Ping");
  for (const auto& part : {call.substr(0, 1), call.substr(0, 16), call.substr(0, call.size() - 1), garbage}) {
    clients.push_back(connectAndAuthenticate());
    clients.back()->send(part);
  }
  expectServed();
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
