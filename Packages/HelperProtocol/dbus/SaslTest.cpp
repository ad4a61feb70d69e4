#include "HelperProtocol/dbus/Sasl.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HelperProtocol/dbus/ProtocolError.hpp"

namespace molvane::dbus {
namespace {

using namespace std::string_literals;

constexpr const char* kGuid = "0123456789abcdef0123456789abcdef";
const std::string kOk = "OK "s + kGuid + "\r\n";
const std::string kRejected = "REJECTED EXTERNAL\r\n";

struct Dialogue {
  std::string answer;
  std::string rest;
  bool done = false;
};

/// What a server of a peer with the uid 1000 makes of `input`, fed in pieces of `step` bytes.
Dialogue serve(const std::string& input, std::size_t step = SIZE_MAX) {
  SaslServer server(1000, kGuid);
  Dialogue dialogue;
  for (std::size_t at = 0; at < input.size() && !server.done(); at += std::min(step, input.size() - at)) {
    dialogue.rest += input.substr(at, step);
    dialogue.rest.erase(0, server.receive(dialogue.rest, dialogue.answer));
  }
  dialogue.done = server.done();
  return dialogue;
}

bool isThrownOut(const std::string& input) {
  try {
    serve(input);
    return false;
  } catch (const ProtocolError&) {
    return true;
  }
}

TEST(SaslTest, LetsInWithOrWithoutAClaimHoweverItArrives) {
  for (const std::size_t step : {std::size_t{1}, std::size_t{7}, SIZE_MAX}) {
    const Dialogue claimed = serve("\0AUTH EXTERNAL 31303030\r\nBEGIN\r\nl\1"s, step);
    EXPECT_EQ(claimed.answer, kOk);
    EXPECT_TRUE(claimed.done);

    const Dialogue unclaimed = serve("\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n"s, step);
    EXPECT_EQ(unclaimed.answer, "DATA\r\n" + kOk + "ERROR Descriptors are not passed here\r\n");
    EXPECT_TRUE(unclaimed.done);
  }
  EXPECT_EQ(serve("\0AUTH EXTERNAL \r\n"s).answer, kOk);
  EXPECT_EQ(serve("\0AUTH EXTERNAL\r\nDATA 31303030\r\n"s).answer, "DATA\r\n" + kOk);
}

TEST(SaslTest, LeavesTheFirstMessageAlone) {
  EXPECT_EQ(serve("\0AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\nl\1\0\1\r\n"s).rest, "l\1\0\1\r\n"s);
}

TEST(SaslTest, RejectsWhoeverClaimsToBeSomebodyElse) {
  for (const char* claim : {"30", "3130303", "3130303030", "2d31", "zz", "31303030zz", "20", "7878"}) {
    EXPECT_EQ(serve("\0AUTH EXTERNAL "s + claim + "\r\n").answer, kRejected) << claim;
  }
  const Dialogue again = serve(
      "\0AUTH\r\nAUTH ANONYMOUS 61\r\nAUTH EXTERNAL\r\nCANCEL\r\nAUTH EXTERNAL\r\nDATA 30\r\n"
      "AUTH EXTERNAL 31303030\r\nERROR\r\nAUTH EXTERNAL 31303030\r\nBEGIN\r\n"s);
  EXPECT_EQ(again.answer,
            kRejected + kRejected + "DATA\r\n" + kRejected + "DATA\r\n" + kRejected + kOk + kRejected + kOk);
  EXPECT_TRUE(again.done);
}

TEST(SaslTest, AnswersNonsenseAndThrowsOutWhoGoesOn) {
  EXPECT_EQ(serve("\0HELLO\r\nDATA\r\n\r\nNEGOTIATE_UNIX_FD\r\n"s).answer,
            "ERROR Not understood\r\nERROR Not understood\r\nERROR Not understood\r\n"
            "ERROR Descriptors are not passed here\r\n");
  std::string forever(1, '\0');
  for (int i = 0; i < 17; ++i) forever += "AUTH\r\n";
  EXPECT_TRUE(isThrownOut(forever));
  EXPECT_TRUE(isThrownOut("AUTH EXTERNAL\r\n"));
  EXPECT_TRUE(isThrownOut("\0BEGIN\r\n"s));
  EXPECT_TRUE(isThrownOut("\0AUTH EXTERNAL\r\nBEGIN\r\n"s));
  EXPECT_TRUE(isThrownOut("\0AUTH \xff\r\n"s));
  EXPECT_TRUE(isThrownOut("\0AUTH EXTERNAL\n"s));
  EXPECT_TRUE(isThrownOut("\0\0"s));
  EXPECT_TRUE(isThrownOut("\0"s + std::string(600, 'A')));
}

TEST(SaslTest, TheClientTakesAnOkAndNothingElse) {
  const std::string answers = "DATA\r\n" + kOk;
  for (std::size_t split = 0; split <= answers.size(); ++split) {
    SaslClient client;
    std::string pending = answers.substr(0, split);
    pending.erase(0, client.receive(pending));
    pending += answers.substr(split) + "l";
    pending.erase(0, client.receive(pending));
    EXPECT_TRUE(client.done());
    EXPECT_EQ(pending, "l");
  }
  for (const std::string& answer :
       {kRejected, kOk, "DATA\r\nERROR\r\n"s, "DATA\r\nDATA\r\n"s, std::string(600, 'D')}) {
    SaslClient client;
    EXPECT_THROW(client.receive(answer), ProtocolError) << answer;
  }
}

TEST(SaslTest, BothSidesUnderstandEachOther) {
  EXPECT_EQ(serve(std::string(SaslClient::greeting())).answer, "DATA\r\n" + kOk);
}

}  // namespace
}  // namespace molvane::dbus
