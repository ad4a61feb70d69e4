#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <list>
#include <random>
#include <string>

#include "HelperProtocol/testing/RawPeer.hpp"
#include "HelperProtocol/testing/ServedHelper.hpp"
#include "HelperProtocol/testing/WireBytes.hpp"
#include "Platform/testing/ToolFolder.hpp"

// Clients that mean no good, or are out of order. None may harm another.
namespace molvane::testing {
namespace {

using namespace std::string_literals;
using dbus::Bytes;
using dbus::MessageType;

/// A time-out that a test can wait for.
constexpr std::chrono::milliseconds kSoon{100};

Bytes ping(std::uint32_t serial, char order = 'l') {
  return WireMessage{.order = order, .serial = serial}.bytes();
}

/// Holds calls in the helper until it lets them go.
class HeldCall {
 public:
  explicit HeldCall(RecordingHelper& helper) {
    helper.setBeforeReply([this] {
      set(begun_);
      released_.wait(false);
      return true;
    });
  }

  void await() const { begun_.wait(false); }
  void release() { set(released_); }

 private:
  static void set(std::atomic<bool>& flag) {
    flag = true;
    flag.notify_all();
  }

  std::atomic<bool> begun_ = false;
  std::atomic<bool> released_ = false;
};

class HostileClientsTest : public ::testing::Test {
 protected:
  void serve(ServedHelper::Options options = {}) {
    served_.emplace(std::move(options));
    Answers answers;
    answers.message = "pong";
    served_->helper().setAnswers(answers);
  }

  RawPeer connected() {
    RawPeer peer(served_->socketPath());
    EXPECT_TRUE(peer.shakeHands());
    return peer;
  }

  static bool isServed(RawPeer& peer) {
    if (!peer.send(ping(77))) return false;
    const auto answer = peer.receive();
    return answer && answer->type == MessageType::methodReturn && answer->replySerial == 77;
  }

  std::optional<ServedHelper> served_;
};

TEST_F(HostileClientsTest, WhoeverDawdlesInTheHandshakeIsDropped) {
  dbus::Limits limits;
  limits.handshake = kSoon;
  serve({.limits = limits});
  RawPeer silent(served_->socketPath());
  RawPeer halfway(served_->socketPath());
  halfway.send("\0AUTH EXTERN"s);
  EXPECT_TRUE(silent.isLeft());
  EXPECT_TRUE(halfway.isLeft());
  EXPECT_TRUE(served_->waitForInvalidations(2));
}

TEST_F(HostileClientsTest, WhoeverDawdlesInAMessageIsDroppedAndWhoeverIsIdleIsNot) {
  dbus::Limits limits;
  limits.incomingMessage = kSoon;
  serve({.limits = limits});
  RawPeer idle = connected();
  RawPeer midMessage = connected();
  midMessage.send(dbus::ByteView(ping(1)).first(40));
  RawPeer midHeader = connected();
  midHeader.send(dbus::ByteView(ping(1)).first(1));
  EXPECT_TRUE(midMessage.isLeft());
  EXPECT_TRUE(midHeader.isLeft());
  EXPECT_TRUE(served_->waitForInvalidations(2));
  EXPECT_TRUE(isServed(idle));
}

TEST_F(HostileClientsTest, GarbageEndsTheConnection) {
  serve();
  std::mt19937 random(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same garbage each time
  std::string garbage(5'000, '\0');
  for (char& c : garbage) c = static_cast<char>(random());
  RawPeer before(served_->socketPath());
  before.send(garbage);
  EXPECT_TRUE(before.isLeft());
  RawPeer after = connected();
  after.send("l" + garbage);
  EXPECT_TRUE(after.isLeft());
  RawPeer http(served_->socketPath());
  http.send("GET / HTTP/1.1\r\n\r\n");
  EXPECT_TRUE(http.isLeft());
  EXPECT_TRUE(served_->waitForInvalidations(3));
}

TEST_F(HostileClientsTest, TooLargeAMessageIsRefusedBeforeItComes) {
  serve();
  // The answer does not wait for the message, and the end of the connection does not overtake a client that
  // sends all of it first.
  WireMessage tooLarge{.serial = 9, .member = "ApplyCompanyAdmin", .signature = "ay"};
  tooLarge.body = WireBytes().u32(3'000'000).raw(std::string(3'000'000, 'x')).bytes();
  const Bytes announced = tooLarge.bytes();
  for (const std::size_t first : {std::size_t{16}, announced.size()}) {
    RawPeer peer = connected();
    ASSERT_TRUE(peer.send(dbus::ByteView(announced).first(first)));
    const auto answer = peer.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->errorName, "org.freedesktop.DBus.Error.LimitsExceeded");
    EXPECT_EQ(answer->replySerial, 9U);
    EXPECT_TRUE(peer.send(dbus::ByteView(announced).subspan(first)));
    EXPECT_TRUE(peer.isLeft());
  }
  // Without a call to answer, or beyond what the protocol allows, the connection just ends.
  for (const auto& [type, size] : {std::pair{4U, 100'000U}, {1U, 0xFFFFFFFFU}}) {
    RawPeer peer = connected();
    peer.send(WireBytes().raw("l").byte(type).byte(0).byte(1).u32(size).u32(1).u32(64).bytes());
    EXPECT_FALSE(peer.receive());
  }
  EXPECT_TRUE(served_->waitForInvalidations(4));

  // The largest that is taken is taken, in pieces of any size.
  RawPeer allowed = connected();
  WireMessage large{.member = "ApplyCompanyAdmin", .signature = "ay"};
  large.body = WireBytes().u32(65'000).raw(std::string(65'000, 'x')).bytes();
  const Bytes bytes = large.bytes();
  for (std::size_t at = 0; at < bytes.size(); at += 5'001) {
    allowed.send(dbus::ByteView(bytes).subspan(at, std::min<std::size_t>(5'001, bytes.size() - at)));
  }
  EXPECT_EQ(allowed.receive()->errorName, "org.freedesktop.DBus.Error.Failed");
  EXPECT_EQ(served_->helper().takeCalls().front().argument.size(), 65'000U);
  EXPECT_TRUE(isServed(allowed));
}

TEST_F(HostileClientsTest, AThousandCallsAtOnceAreAnsweredInOrder) {
  serve();
  Bytes all;
  for (std::uint32_t serial = 1; serial <= 1'000; ++serial) {
    const Bytes call = ping(serial, serial % 2 == 0 ? 'l' : 'B');
    all.insert(all.end(), call.begin(), call.end());
  }
  RawPeer peer(served_->socketPath());
  EXPECT_TRUE(peer.send("\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n"s));
  EXPECT_TRUE(peer.send(all));
  std::string handshake(sizeof "DATA\r\nOK 0123456789abcdef0123456789abcdef\r\n"
                               "ERROR Descriptors are not passed here\r\n" - 1, '\0');
  ASSERT_EQ(::recv(peer.socket().get(), handshake.data(), handshake.size(), MSG_WAITALL),
            static_cast<ssize_t>(handshake.size()));
  for (std::uint32_t serial = 1; serial <= 1'000; ++serial) {
    const auto answer = peer.receive();
    ASSERT_TRUE(answer && answer->replySerial == serial);
    ASSERT_EQ(answer->arguments().string(), "pong");
  }
}

TEST_F(HostileClientsTest, WhoeverDoesNotReadAnswersIsDropped) {
  dbus::Limits limits;
  limits.sendStall = kSoon;
  serve({.limits = limits});
  RawPeer other = connected();
  RawPeer deaf = connected();
  Bytes many;
  for (std::uint32_t serial = 1; serial <= 5'000; ++serial) {
    const Bytes call = ping(serial);
    many.insert(many.end(), call.begin(), call.end());
  }
  int rounds = 0;
  while (rounds < 1'000 && deaf.send(many)) ++rounds;
  EXPECT_LT(rounds, 1'000);
  EXPECT_TRUE(served_->waitForInvalidations(1));
  EXPECT_TRUE(isServed(other));
}

TEST_F(HostileClientsTest, ACallGoesOnWhenItsCallerVanishes) {
  serve();
  HeldCall held(served_->helper());
  RawPeer peer = connected();
  // Only that one: what waits behind it is not begun for nobody.
  for (std::uint32_t serial = 1; serial <= 3; ++serial) {
    peer.send(WireMessage{.flags = dbus::kNoReplyExpected, .serial = serial}.bytes());
  }
  held.await();
  peer.leave();
  EXPECT_EQ(served_->invalidated(), 0);
  held.release();
  EXPECT_TRUE(served_->waitForInvalidations(1));
  EXPECT_EQ(served_->helper().takeCalls().size(), 1U);
}

// As when a client hands its socket on: whoever holds it now was never checked.
TEST_F(HostileClientsTest, AConnectionEndsWithTheProcessThatWasChecked) {
  serve();
  HeldCall held(served_->helper());
  RawPeer idle = connected();
  RawPeer halfway = connected();
  halfway.send(dbus::ByteView(ping(1)).first(40));
  RawPeer busy = connected();
  Bytes two = ping(1);
  const Bytes second = ping(2);
  two.insert(two.end(), second.begin(), second.end());
  busy.send(two);
  held.await();

  served_->endPeerProcesses();
  EXPECT_TRUE(idle.isLeft());
  EXPECT_TRUE(halfway.isLeft());
  held.release();
  EXPECT_TRUE(busy.receive());
  EXPECT_TRUE(busy.isLeft());
  EXPECT_TRUE(served_->waitForInvalidations(3));
  EXPECT_EQ(served_->helper().takeCalls().size(), 1U);
}

// Six users take as many as they get and say nothing. All users together cannot have more than there are.
TEST_F(HostileClientsTest, EachUserLeavesPlacesForTheNext) {
  std::atomic<std::uint32_t> uid = 0;
  dbus::Limits limits;
  limits.silence = std::chrono::hours(1);
  limits.connections = 64;
  limits.connectionsPerUser = 16;
  serve({.limits = limits, .peerUID = [&uid](const FileDescriptor&) { return uid.load(); }});
  std::list<RawPeer> peers;
  const auto places = [&](int wanted) {
    int taken = 0;
    for (++uid; taken < wanted; ++taken) {
      if (!peers.emplace_back(served_->socketPath()).shakeHands()) break;
    }
    return taken;
  };
  for (const int share : {16, 16, 8, 4, 3, 2}) EXPECT_EQ(places(20), share);
  for (int others = 0; others < 15; ++others) EXPECT_EQ(places(1), 1);
  EXPECT_EQ(places(1), 0);

  // A place that was given back can be taken again.
  ::shutdown(peers.front().socket().get(), SHUT_WR);
  EXPECT_TRUE(peers.front().isLeft());
  EXPECT_EQ(places(1), 1);
}

TEST_F(HostileClientsTest, ASilentConnectionInTheWayMakesRoom) {
  std::atomic<std::uint32_t> uid = 1;
  dbus::Limits limits;
  limits.silence = std::chrono::seconds(0);
  limits.connections = 4;
  serve({.limits = limits, .peerUID = [&uid](const FileDescriptor&) { return uid.load(); }});
  const auto isLetIn = [this] { return RawPeer(served_->socketPath()).shakeHands(); };
  // A connection that has been answered is silent only a moment later.
  std::list<RawPeer> newcomers;
  const auto comeInTheEnd = [&]() -> RawPeer& {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!newcomers.emplace_back(served_->socketPath()).shakeHands()) {
      if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("nobody made way");
      newcomers.pop_back();
    }
    return newcomers.back();
  };
  RawPeer silent = connected();
  RawPeer busy = connected();
  HeldCall held(served_->helper());
  busy.send(ping(77));
  held.await();
  uid = 2;
  RawPeer second = connected();
  uid = 3;
  RawPeer third = connected();

  // All places are taken, and the first user has two.
  uid = 4;
  RawPeer& fourth = comeInTheEnd();
  EXPECT_TRUE(silent.isLeft());
  // Nobody has more than another has now; and a call is never in the way.
  uid = 5;
  EXPECT_FALSE(isLetIn());
  uid = 1;
  EXPECT_FALSE(isLetIn());
  held.release();
  EXPECT_TRUE(busy.receive());
  // One's own silence is in one's own way.
  RawPeer& anew = comeInTheEnd();
  EXPECT_TRUE(busy.isLeft());
  for (RawPeer* peer : {&second, &third, &fourth, &anew}) EXPECT_TRUE(isServed(*peer));
}

TEST_F(HostileClientsTest, DescriptorsThatArePassedDoNotStay) {
  serve();
  RawPeer peer = connected();
  ASSERT_TRUE(isServed(peer));
  const int before = openDescriptorCount();
  const Bytes call = ping(5);
  for (int i = 0; i < 10; ++i) {
    int passed[100];
    std::fill(std::begin(passed), std::end(passed), STDERR_FILENO);
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof passed)] = {};
    iovec bytes{const_cast<std::uint8_t*>(call.data()), call.size()};
    msghdr message{};
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof passed);
    std::memcpy(CMSG_DATA(header), passed, sizeof passed);
    ASSERT_EQ(::sendmsg(peer.socket().get(), &message, 0), static_cast<ssize_t>(call.size()));
    ASSERT_TRUE(peer.receive());
  }
  EXPECT_EQ(openDescriptorCount(), before);
}

}  // namespace
}  // namespace molvane::testing
