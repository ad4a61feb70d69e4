#include "HelperProtocol/dbus/Exporter.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "HelperProtocol/testing/RecordingHelper.hpp"
#include "HelperProtocol/testing/WireBytes.hpp"

namespace molvane::dbus {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using testing::WireBytes;
using testing::WireMessage;

class ExporterTest : public ::testing::Test {
 protected:
  /// The answer to a ping that was changed; nothing when there is none.
  std::optional<Message> answer(const std::function<void(WireMessage&)>& change) {
    WireMessage call{.serial = 33};
    change(call);
    const Bytes bytes = call.bytes();
    if (!exporter_.handle(decodeMessage(bytes), answer_)) return std::nullopt;
    Message message = decodeMessage(answer_);
    EXPECT_EQ(message.replySerial, 33U);
    EXPECT_NE(message.serial, 0U);
    return message;
  }

  std::string errorOf(const std::function<void(WireMessage&)>& change) {
    const auto message = answer(change);
    return message ? std::string(message->errorName) : "no answer";
  }

  std::string textOf(const std::function<void(WireMessage&)>& change) {
    const auto message = answer(change);
    if (!message || message->type != MessageType::methodReturn || message->signature != "s") return "no text";
    return std::string(message->arguments().string());
  }

  std::shared_ptr<testing::RecordingHelper> helper_ = std::make_shared<testing::RecordingHelper>();
  Exporter exporter_{helper_, ":1.7"};
  Bytes answer_;
};

const std::string kError = "org.freedesktop.DBus.Error.";

TEST_F(ExporterTest, SaysWhatIsWrongWithACall) {
  EXPECT_EQ(errorOf([](auto&) {}), "");
  EXPECT_EQ(errorOf([](auto& m) { m.path = "/com/molvane/other"; }), kError + "UnknownObject");
  EXPECT_EQ(errorOf([](auto& m) { m.path = "/com/molv"; }), kError + "UnknownObject");
  EXPECT_EQ(errorOf([](auto& m) { m.path = "/com"; }), kError + "UnknownInterface");
  EXPECT_EQ(errorOf([](auto& m) { m.interface = "com.molvane.other"; }), kError + "UnknownInterface");
  EXPECT_EQ(errorOf([](auto& m) { m.member = "Pong"; }), kError + "UnknownMethod");
  EXPECT_EQ(errorOf([](auto& m) { m.interface.clear(), m.member = "Pong"; }), kError + "UnknownMethod");
  EXPECT_EQ(errorOf([](auto& m) { m.signature = "s", m.body = WireBytes().string("x").bytes(); }),
            kError + "InvalidArgs");
  EXPECT_EQ(errorOf([](auto& m) { m.member = "RemoveAllowedItemAtPath"; }), kError + "InvalidArgs");
  EXPECT_THAT(helper_->takeCalls(), SizeIs(1));
}

TEST_F(ExporterTest, RefusesArgumentsThatAreMalformed) {
  const auto removal = [](Bytes body) {
    return [body = std::move(body)](WireMessage& m) {
      m.member = "RemoveAllowedItemAtPath";
      m.signature = "s";
      m.body = body;
    };
  };
  EXPECT_EQ(errorOf(removal({})), kError + "InvalidArgs");
  EXPECT_EQ(errorOf(removal(WireBytes().string("\xff").bytes())), kError + "InvalidArgs");
  EXPECT_EQ(errorOf(removal(WireBytes().string("/x").byte(0).bytes())), kError + "InvalidArgs");
  EXPECT_EQ(errorOf(removal(WireBytes().u32(0xFFFFFFFF).bytes())), kError + "InvalidArgs");
  EXPECT_THAT(helper_->takeCalls(), IsEmpty());
}

TEST_F(ExporterTest, TakesACallWithoutAnInterfaceAndFromABigEndianMachine) {
  EXPECT_EQ(errorOf([](auto& m) {
              m.order = 'B';
              m.interface.clear();
              m.member = "RemoveAllowedItemAtPath";
              m.signature = "s";
              m.body = WireBytes('B').string("/tmp/x").bytes();
            }),
            "");
  EXPECT_EQ(helper_->takeCalls().front(), (testing::RecordingHelper::Call{"removeAllowedItem", "/tmp/x"}));
}

TEST_F(ExporterTest, AnswersNobodyWhoWantsNoAnswer) {
  EXPECT_EQ(errorOf([](auto& m) { m.flags = 1; }), "no answer");
  EXPECT_THAT(helper_->takeCalls(), SizeIs(1));
  EXPECT_EQ(errorOf([](auto& m) { m.flags = 1, m.member = "Pong"; }), "no answer");
  for (const unsigned type : {2U, 3U, 4U, 200U}) {
    EXPECT_EQ(errorOf([&](auto& m) { m.type = type, m.replySerial = 5, m.errorName = "a.b"; }), "no answer");
  }
  EXPECT_THAT(helper_->takeCalls(), IsEmpty());
}

TEST_F(ExporterTest, StandsOnWhatEveryConnectionHas) {
  const auto peer = [](const char* member) {
    return [member](WireMessage& m) {
      m.path = "/any/where", m.interface = "org.freedesktop.DBus.Peer", m.member = member;
    };
  };
  EXPECT_EQ(errorOf(peer("Ping")), "");
  EXPECT_EQ(errorOf(peer("Gnip")), kError + "UnknownObject");
  const std::string id = textOf(peer("GetMachineId"));
  EXPECT_TRUE(id.size() == 32 || errorOf(peer("GetMachineId")) == kError + "FileNotFound") << id;
}

// The answers that libraries for a bus wait for before they make the call that they were asked for.
TEST_F(ExporterTest, IsABusToThoseWhoSayHello) {
  const auto bus = [](const char* member, const char* signature = "", const Bytes& body = {}) {
    return [=](WireMessage& m) {
      m.path = "/org/freedesktop/DBus", m.interface = m.destination = "org.freedesktop.DBus";
      m.member = member, m.signature = signature, m.body = body;
    };
  };
  const auto named = [&](const char* member, const char* name) {
    return bus(member, "s", WireBytes().string(name).bytes());
  };
  const auto addresses = [this](const auto& change) {
    const auto message = answer(change);
    return std::string(message->sender) + " to " + std::string(message->destination);
  };
  EXPECT_EQ(addresses([](auto&) {}), " to ");
  EXPECT_EQ(addresses(bus("Hello")), "org.freedesktop.DBus to :1.7");
  EXPECT_EQ(addresses([](auto&) {}), ":1.0 to :1.7");
  EXPECT_EQ(addresses([](auto& m) { m.destination = "com.molvane.helper"; }), ":1.0 to :1.7");
  EXPECT_EQ(errorOf(bus("Hello")), kError + "Failed");

  EXPECT_EQ(errorOf(named("AddMatch", "type='signal'")), "");
  EXPECT_EQ(errorOf(named("RemoveMatch", "type='signal'")), "");
  for (const auto& [name, owner] : {std::pair{"com.molvane.helper", ":1.0"},
                                    {":1.0", ":1.0"},
                                    {":1.7", ":1.7"},
                                    {"org.freedesktop.DBus", "org.freedesktop.DBus"}}) {
    EXPECT_EQ(textOf(named("GetNameOwner", name)), owner);
    EXPECT_EQ(answer(named("NameHasOwner", name))->body.front(), 1);
  }
  EXPECT_EQ(errorOf(named("GetNameOwner", ":1.8")), kError + "NameHasNoOwner");
  EXPECT_EQ(answer(named("NameHasOwner", ":1.8"))->body.front(), 0);
  EXPECT_THAT(std::string(dbus::asText(answer(bus("ListNames"))->body)),
              AllOf(HasSubstr("com.molvane.helper"), HasSubstr(":1.0"), HasSubstr(":1.7")));
  const auto start = [&](const char* name) {
    return bus("StartServiceByName", "su", WireBytes().string(name).u32(0).bytes());
  };
  EXPECT_EQ(answer(start("com.molvane.helper"))->arguments().uint32(), 2U);
  EXPECT_EQ(errorOf(start("com.example.other")), kError + "ServiceUnknown");

  static_cast<void>(helper_->takeCalls());
  for (const char* other : {"com.example.other", ":1.7", ":1.8"}) {
    EXPECT_EQ(errorOf([&](auto& m) { m.destination = other; }), kError + "ServiceUnknown");
  }
  EXPECT_THAT(helper_->takeCalls(), IsEmpty());
}

TEST_F(ExporterTest, DescribesItselfAndThePathsAboveIt) {
  const auto introspection = [this](const char* path) {
    return textOf([path](auto& m) {
      m.path = path, m.interface = "org.freedesktop.DBus.Introspectable", m.member = "Introspect";
    });
  };
  EXPECT_THAT(introspection("/"),
              AllOf(HasSubstr("<node name=\"com\"/>"), Not(HasSubstr("com.molvane.helper"))));
  EXPECT_THAT(introspection("/com"), HasSubstr("<node name=\"molvane\"/>"));
  EXPECT_THAT(introspection("/com/molvane"), HasSubstr("<node name=\"helper\"/>"));
  EXPECT_THAT(introspection("/com/molvane/helper"),
              AllOf(HasSubstr("<interface name=\"com.molvane.helper\">"),
                    HasSubstr("<arg type=\"aay\" name=\"snapshot\" direction=\"out\"/>"),
                    HasSubstr("<arg type=\"as\" name=\"refusal\" direction=\"out\"/>"),
                    Not(HasSubstr("<node name"))));
  EXPECT_EQ(introspection("/com/molvane/helper/x"), "no text");
}

TEST_F(ExporterTest, HasNoProperties) {
  const auto properties = [](const char* member, const char* signature, const Bytes& body) {
    return [=](WireMessage& m) {
      m.interface = "org.freedesktop.DBus.Properties", m.member = member, m.signature = signature,
      m.body = body;
    };
  };
  const auto all = answer(properties("GetAll", "s", WireBytes().string("com.molvane.helper").bytes()));
  EXPECT_EQ(all->signature, "a{sv}");
  EXPECT_THAT(all->body, ::testing::ElementsAre(0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_EQ(errorOf(properties("GetAll", "s", WireBytes().string("a.b").bytes())),
            kError + "UnknownInterface");
  const Bytes named = WireBytes().string("com.molvane.helper").string("Colour").bytes();
  EXPECT_EQ(errorOf(properties("Get", "ss", named)), kError + "UnknownProperty");
  EXPECT_EQ(errorOf(properties(
                "Set", "ssv",
                WireBytes().string("com.molvane.helper").string("Colour").variant("s", "red").bytes())),
            kError + "UnknownProperty");
}

}  // namespace
}  // namespace molvane::dbus
