#include "HelperProtocol/dbus/Message.hpp"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "HelperProtocol/dbus/Limits.hpp"
#include "HelperProtocol/dbus/ProtocolError.hpp"
#include "HelperProtocol/dbus/Syntax.hpp"
#include "HelperProtocol/testing/WireBytes.hpp"

namespace molvane::dbus {
namespace {

using namespace std::string_literals;
using testing::WireBytes;
using testing::WireMessage;

/// What a receiver does with bytes: decide about the size from the first sixteen, then decode.
Message received(const Bytes& bytes) {
  const ByteView view(bytes);
  if (bytes.size() < kFrameSize) throw ProtocolError("short");
  if (frameOf(view.first(kFrameSize)).size != bytes.size()) throw ProtocolError("another size");
  return decodeMessage(view);
}

bool isAccepted(const Bytes& bytes) {
  try {
    static_cast<void>(received(bytes));
    return true;
  } catch (const ProtocolError&) {
    return false;
  }
}

bool isAccepted(const std::function<void(WireMessage&)>& change) {
  WireMessage message;
  change(message);
  return isAccepted(message.bytes());
}

TEST(MessageTest, ReadsAMessageInEitherByteOrder) {
  for (const char order : {'l', 'B'}) {
    WireBytes body(order);
    body.string("/Üser").u64(0x8000000000000001U).u32(1).u32(3).raw("\x01\x02\x03");
    const Bytes bytes = WireMessage{.order = order,
                                    .flags = 0x87,
                                    .serial = 0x01020304,
                                    .interface = "a.b_2.C",
                                    .destination = ":1.x-7",
                                    .sender = "com.a-b",
                                    .signature = "sxbay",
                                    .body = body.bytes()}
                            .bytes();
    const Message message = received(bytes);
    EXPECT_EQ(message.type, MessageType::methodCall);
    EXPECT_EQ(message.flags, 0x87);
    EXPECT_EQ(message.serial, 0x01020304U);
    EXPECT_EQ(message.path, "/com/molvane/helper");
    EXPECT_EQ(message.interface, "a.b_2.C");
    EXPECT_EQ(message.member, "Ping");
    EXPECT_EQ(message.destination, ":1.x-7");
    EXPECT_EQ(message.sender, "com.a-b");
    EXPECT_EQ(message.signature, "sxbay");
    Decoder arguments = message.arguments();
    EXPECT_EQ(arguments.string(), "/Üser");
    EXPECT_EQ(arguments.int64(), static_cast<std::int64_t>(0x8000000000000001U));
    EXPECT_TRUE(arguments.boolean());
    EXPECT_EQ(asText(arguments.byteArray()), "\x01\x02\x03");
    EXPECT_NO_THROW(arguments.expectEnd());
  }
}

TEST(MessageTest, WritesWhatItReads) {
  Bytes buffer = {1, 2, 3};
  Header header;
  header.type = MessageType::error;
  header.flags = kNoReplyExpected;
  header.serial = 9;
  header.replySerial = 7;
  header.errorName = "a.b";
  header.signature = "sxaayas";
  MessageBuilder builder(buffer, header);
  Encoder& body = builder.body();
  body.text("a\0\xff"s);
  body.int64(-2);
  const Encoder::Array outer = body.beginArray(4);
  body.byteArray(asBytes("xyz"));
  body.endArray(outer);
  body.endArray(body.beginArray(4));
  builder.finish();

  WireBytes expected;
  expected.string("a\uFFFD\uFFFD").u64(static_cast<std::uint64_t>(-2)).u32(7).u32(3).raw("xyz").u32(0);
  const WireMessage same{.type = 3,
                         .flags = 1,
                         .serial = 9,
                         .path = {},
                         .interface = {},
                         .member = {},
                         .errorName = "a.b",
                         .replySerial = 7,
                         .signature = "sxaayas",
                         .body = expected.bytes()};
  EXPECT_EQ(buffer, same.bytes());
  EXPECT_EQ(received(buffer).replySerial, 7U);
}

TEST(MessageTest, RefusesWhatTheHeaderMustNotBe) {
  ASSERT_TRUE(isAccepted([](WireMessage&) {}));
  const std::vector<std::pair<const char*, std::function<void(WireMessage&)>>> wrong = {
      {"byte order", [](auto& m) { m.order = 'b'; }},
      {"type 0", [](auto& m) { m.type = 0; }},
      {"version", [](auto& m) { m.version = 2; }},
      {"serial", [](auto& m) { m.serial = 0; }},
      {"call without a path", [](auto& m) { m.path.clear(); }},
      {"call without a member", [](auto& m) { m.member.clear(); }},
      {"signal without an interface", [](auto& m) { m.type = 4, m.interface.clear(); }},
      {"reply to nothing", [](auto& m) { m.type = 2; }},
      {"error without a name", [](auto& m) { m.type = 3, m.replySerial = 1; }},
      {"body without a signature",
       [](auto& m) {
         m.body = {0, 0, 0, 0};
       }},
      {"local path", [](auto& m) { m.path = "/org/freedesktop/DBus/Local"; }},
      {"local interface", [](auto& m) { m.interface = "org.freedesktop.DBus.Local"; }},
      {"signature", [](auto& m) { m.signature = "(s", m.body = {0}; }},
      {"field 0", [](auto& m) { m.extraFields = WireBytes().byte(0).variant("s", "x").bytes(); }},
      {"field twice", [](auto& m) { m.extraFields = WireBytes().byte(3).variant("s", "Ping").bytes(); }},
      {"type of a field", [](auto& m) { m.extraFields = WireBytes().byte(7).variant("o", "/a").bytes(); }},
      {"descriptors", [](auto& m) { m.extraFields = WireBytes().byte(9).signature("u").u32(1).bytes(); }},
      {"two values in a variant",
       [](auto& m) { m.extraFields = WireBytes().byte(99).signature("yy").byte(1).byte(1).bytes(); }},
      {"no value in a variant", [](auto& m) { m.extraFields = WireBytes().byte(99).signature("").bytes(); }},
      {"array beyond the end",
       [](auto& m) { m.extraFields = WireBytes().byte(99).signature("as").u32(900).bytes(); }},
  };
  for (const auto& [what, change] : wrong) EXPECT_FALSE(isAccepted(change)) << what;

  for (const char* name : {"a", "a.", ".a", "a..b", "1a.b", "a.1b", "a-b.c", "a.b c", "ä.b"}) {
    EXPECT_FALSE(isAccepted([&](auto& m) { m.interface = name; })) << name;
  }
  EXPECT_FALSE(isAccepted([](auto& m) { m.interface = "a." + std::string(254, 'b'); }));
  EXPECT_TRUE(isAccepted([](auto& m) { m.interface = "a." + std::string(253, 'b'); }));
  for (const char* path : {"a", "//", "/a/", "/a//b", "/a-b", "/ä"}) {
    EXPECT_FALSE(isAccepted([&](auto& m) { m.path = path; })) << path;
  }
  for (const char* member : {"a.b", "1a", "a-b", "a b"}) {
    EXPECT_FALSE(isAccepted([&](auto& m) { m.member = member; })) << member;
  }
  for (const char* bus : {":1", ":", "a", "1.b", "a..b"}) {
    EXPECT_FALSE(isAccepted([&](auto& m) { m.destination = bus; })) << bus;
  }
}

TEST(MessageTest, StepsOverFieldsThatItDoesNotKnow) {
  constexpr std::uint32_t kElements = 26;
  WireBytes nested;
  nested.byte(42)
      .signature("a{s(vay)}")
      .u32(kElements)
      .align(8)
      .string("key")
      .align(8)
      .variant("s", "v")
      .u32(2)
      .raw("xy");
  WireMessage message;
  message.extraFields = nested.bytes();
  ASSERT_EQ(message.extraFields.size(), 16 + kElements);
  EXPECT_TRUE(isAccepted(message.bytes()));
  EXPECT_TRUE(isAccepted([](auto& m) { m.type = 77; }));

  // A variant in a variant in a variant: bounded, however long the message.
  const auto variants = [](std::size_t count) {
    WireBytes field;
    field.byte(200);
    for (std::size_t i = 0; i < count; ++i) field.signature("v");
    return WireMessage{.extraFields = field.signature("y").byte(7).bytes()}.bytes();
  };
  EXPECT_TRUE(isAccepted(variants(60)));
  EXPECT_FALSE(isAccepted(variants(70)));
  EXPECT_FALSE(isAccepted(variants(300'000)));
}

TEST(MessageTest, DecidesAboutTheSizeFromTheFirstBytes) {
  const auto announced = [](std::uint32_t fields, std::uint32_t body) {
    return WireBytes().raw("l\x01").byte(0).byte(1).u32(body).u32(1).u32(fields).bytes();
  };
  EXPECT_EQ(frameOf(announced(9, 5)).size, 16U + 16 + 5);
  EXPECT_EQ(frameOf(announced(0, kMaxMessageSize - 16)).size, kMaxMessageSize);
  for (const auto& [fields, body] :
       {std::pair{0U, std::uint32_t{kMaxMessageSize - 15}}, {0U, 0xFFFFFFFFU}, {0xFFFFFFFFU, 0xFFFFFFFFU}}) {
    EXPECT_THROW(static_cast<void>(frameOf(announced(fields, body))), ProtocolError);
  }
}

TEST(MessageTest, RefusesValuesThatAreNotWhatTheySay) {
  const auto refuses = [](const WireBytes& bytes, auto&& use) {
    Decoder decoder(bytes.bytes(), ByteOrder::little);
    EXPECT_THROW(use(decoder), ProtocolError);
  };
  const auto readString = [](Decoder& d) { static_cast<void>(d.string()); };
  refuses(WireBytes().u32(3).raw("ab\0"s), readString);
  refuses(WireBytes().u32(2).raw("abc"), readString);
  refuses(WireBytes().u32(0xFFFFFFFF).raw("abc"), readString);
  refuses(WireBytes().string("a\0b"s), readString);
  refuses(WireBytes().string("\xC0\x80"), readString);
  refuses(WireBytes().byte(0).raw("\0\1\0"s).u32(0), [](Decoder& d) { d.byte(), d.uint32(); });
  refuses(WireBytes().u32(2), [](Decoder& d) { d.boolean(); });
  refuses(WireBytes().u32(5).raw("abcd"), [](Decoder& d) { static_cast<void>(d.byteArray()); });
  refuses(WireBytes().u32(kMaxArraySize + 1), [](Decoder& d) { static_cast<void>(d.byteArray()); });
  refuses(WireBytes().u32(4).string("longer"), [](Decoder& d) {
    const std::size_t end = d.beginArray(4);
    static_cast<void>(d.string());
    d.endArray(end);
  });
  refuses(WireBytes().string("x").byte(0), [](Decoder& d) { static_cast<void>(d.string()), d.expectEnd(); });
}

TEST(MessageTest, KnowsSignatures) {
  for (const char* good : {"", "a{sv}", "aayas", "(a(sa{yv}))", "bs"}) EXPECT_TRUE(isSignature(good)) << good;
  for (const char* bad : {"a", "()", "(s", "s)", "{sv}", "a{vs}", "a{s}", "a{svs}", "r", "e", "z", "a{sv"}) {
    EXPECT_FALSE(isSignature(bad)) << bad;
  }
  EXPECT_TRUE(isSignature(std::string(32, 'a') + "y"));
  EXPECT_FALSE(isSignature(std::string(33, 'a') + "y"));
  EXPECT_TRUE(isSignature(std::string(32, '(') + "y" + std::string(32, ')')));
  EXPECT_FALSE(isSignature(std::string(33, '(') + "y" + std::string(33, ')')));
  EXPECT_FALSE(isSignature(std::string(256, 'y')));
  EXPECT_EQ(leadingTypeLength("a{s(iu)}x"), 8U);
}

// Every cut and every changed byte is either refused or still a message; the sanitizers watch over it.
TEST(MessageTest, SurvivesDamage) {
  WireMessage message{.destination = "a.b", .sender = ":1.2", .signature = "s"};
  message.body = WireBytes().string("/tmp").bytes();
  const Bytes whole = message.bytes();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(isAccepted(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))));
  }
  std::mt19937 random(20'260'101);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same damage each time
  int accepted = 0;
  for (int i = 0; i < 50'000; ++i) {
    Bytes damaged = whole;
    for (int changes = 1 + static_cast<int>(random() % 3); changes > 0; --changes) {
      damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
    }
    accepted += isAccepted(damaged) ? 1 : 0;
  }
  EXPECT_GT(accepted, 0);
}

}  // namespace
}  // namespace molvane::dbus
