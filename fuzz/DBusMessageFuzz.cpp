#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "HelperProtocol/dbus/Answer.hpp"
#include "HelperProtocol/dbus/Exporter.hpp"
#include "HelperProtocol/dbus/Limits.hpp"
#include "HelperProtocol/dbus/Message.hpp"
#include "HelperProtocol/dbus/ProtocolError.hpp"
#include "HelperProtocol/dbus/Sasl.hpp"
#include "HelperProtocol/dbus/Values.hpp"
#include "HelperProtocol/testing/RecordingHelper.hpp"

// What a connection reads before anything is known about who wrote it: the handshake and the messages behind
// it, and on the client's side the answers. The input's first byte picks the reader.
namespace molvane {

namespace {

using namespace dbus;

void expect(bool holds) {
  if (!holds) std::abort();
}

void fuzzMessages(ByteView input) {
  const auto helper = std::make_shared<testing::RecordingHelper>();
  Exporter exporter(helper, ":1.1");
  Bytes answer;
  while (input.size() >= kFrameSize) {
    const Frame frame = frameOf(input);
    if (frame.size > kMaxRequestSize) {
      if (exporter.refuse(frame, answer)) expect(decodeMessage(answer).replySerial == frame.serial);
      return;
    }
    if (frame.size > input.size()) return;
    const Message message = decodeMessage(input.first(frame.size));
    if (exporter.handle(message, answer)) {
      const Message reply = decodeMessage(answer);
      expect(reply.replySerial == message.serial);
      if (reply.type == MessageType::error) expect(!errorOf(reply).domain.empty());
    }
    if (message.type == MessageType::error) static_cast<void>(errorOf(message));
    input = input.subspan(frame.size);
  }
}

void fuzzAnswerValues(ByteView input) {
  Decoder decoder(input, ByteOrder::little);
  std::optional<Data> document;
  std::optional<std::string> text;
  std::int64_t number = 0;
  bool flag = false;
  read(decoder, document);
  read(decoder, text);
  read(decoder, number);
  read(decoder, flag);
  decoder.expectEnd();
}

void fuzzHandshake(ByteView input) {
  if (input.empty()) return;
  const std::size_t step = input[0] % 7 + std::size_t{1};
  const std::string_view text = asText(input.subspan(1));
  SaslServer server(0, std::string(32, '0'));
  std::string pending;
  std::string answers;
  for (std::size_t at = 0; at < text.size() && !server.done(); at += step) {
    pending += text.substr(at, step);
    const std::size_t taken = server.receive(pending, answers);
    expect(taken <= pending.size());
    pending.erase(0, taken);
    expect(pending.size() < 1024 && answers.size() < 4096);
  }
}

void fuzzClientHandshake(ByteView input) {
  SaslClient client;
  expect(client.receive(asText(input)) <= input.size());
}

}  // namespace

}  // namespace molvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const molvane::dbus::ByteView input(data + 1, size - 1);
  try {
    switch (data[0] % 4) {
      case 0:
        molvane::fuzzMessages(input);
        break;
      case 1:
        molvane::fuzzHandshake(input);
        break;
      case 2:
        molvane::fuzzAnswerValues(input);
        break;
      default:
        molvane::fuzzClientHandshake(input);
    }
  } catch (const molvane::dbus::ProtocolError&) {
    // Refused, as most inputs are.
  }
  return 0;
}
