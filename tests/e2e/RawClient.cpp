#include "RawClient.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace molvane::e2e {

namespace {

constexpr char kMethodReply = 2;
constexpr char kErrorReply = 3;
constexpr char kReplySerialField = 5;
constexpr std::size_t kFixedHeader = 16;

void padTo(std::string& bytes, std::size_t alignment) {
  bytes.resize((bytes.size() + alignment - 1) / alignment * alignment, '\0');
}

void appendNumber(std::string& bytes, std::uint32_t number) {
  for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>(number >> shift & 0xff));
}

std::uint32_t numberAt(const std::string& bytes, std::size_t offset) {
  std::uint32_t number = 0;
  for (int i = 3; i >= 0; --i) number = number << 8 | static_cast<unsigned char>(bytes.at(offset + i));
  return number;
}

// One header field: its code and a variant. Signatures have a length of one byte, the other texts of four.
void appendField(std::string& header, char code, char type, std::string_view value) {
  padTo(header, 8);
  header += {code, 1, type, '\0'};
  if (type == 'g') {
    header.push_back(static_cast<char>(value.size()));
  } else {
    appendNumber(header, static_cast<std::uint32_t>(value.size()));
  }
  header.append(value).push_back('\0');
}

// Finds the serial that a reply answers among its header fields, which begin at an offset of kFixedHeader.
std::uint32_t replySerial(const std::string& header) {
  std::size_t at = kFixedHeader;
  while (at + 4 < header.size()) {
    const char code = header[at];
    const char type = header[at + 2];
    at += 4;
    if (code == kReplySerialField) return numberAt(header, at);
    if (type == 'u') {
      at += 4;
    } else if (type == 'g') {
      at += 2 + static_cast<unsigned char>(header.at(at));
    } else {
      at += 4 + numberAt(header, at) + 1;
    }
    at = (at + 7) / 8 * 8;
  }
  throw std::runtime_error("a reply to nothing");
}

}  // namespace

std::string marshalled(std::string_view text) {
  std::string bytes;
  appendNumber(bytes, static_cast<std::uint32_t>(text.size()));
  bytes.append(text).push_back('\0');
  return bytes;
}

std::string methodCall(std::uint32_t serial, std::string_view member, std::string_view signature,
                       std::string_view body) {
  std::string fields;
  appendField(fields, 1, 'o', "/com/molvane/helper");
  appendField(fields, 2, 's', "com.molvane.helper");
  appendField(fields, 3, 's', member);
  if (!signature.empty()) appendField(fields, 8, 'g', signature);

  std::string message{'l', 1, 0, 1};
  appendNumber(message, static_cast<std::uint32_t>(body.size()));
  appendNumber(message, serial);
  appendNumber(message, static_cast<std::uint32_t>(fields.size()));
  message += fields;
  padTo(message, 8);
  return message.append(body);
}

std::string stringAt(const std::string& body, std::size_t offset) {
  const std::size_t size = numberAt(body, offset);
  if (size > body.size() - offset - 4) throw std::out_of_range("a string beyond the message");
  return body.substr(offset + 4, size);
}

bool booleanAt(const std::string& body, std::size_t offset) { return numberAt(body, offset) != 0; }

RawClient::RawClient(std::chrono::seconds patience)
    : patience_(patience), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string_view(kSocket).copy(address.sun_path, sizeof address.sun_path - 1);
  if (connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
    throw std::system_error(errno, std::generic_category(), "connect");
  }
}

bool RawClient::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void RawClient::authenticate() {
  using namespace std::string_view_literals;
  // The identity is this process's user, written in hexadecimal digits of its decimal digits.
  std::string identity;
  for (const char digit : std::to_string(getuid())) identity += {'3', digit};
  if (!send("\0AUTH EXTERNAL "sv) || !send(identity + "\r\n"))
    throw std::runtime_error("closed at the handshake");
  std::size_t end = std::string::npos;
  while ((end = buffer_.find("\r\n")) == std::string::npos) {
    if (!fill(buffer_.size() + 1)) throw std::runtime_error("closed during the handshake");
  }
  const std::string answer = buffer_.substr(0, end);
  buffer_.erase(0, end + 2);
  if (answer.rfind("OK ", 0) != 0) throw std::runtime_error("handshake answered with " + answer);
  if (!send("BEGIN\r\n")) throw std::runtime_error("closed after the handshake");
}

bool RawClient::fill(std::size_t size) {
  std::array<char, 65536> piece{};
  while (buffer_.size() < size) {
    pollfd readable{socket_.get(), POLLIN, 0};
    if (poll(&readable, 1, static_cast<int>(patience_.count())) != 1)
      throw std::runtime_error("the helper does not answer");
    const ssize_t count = recv(socket_.get(), piece.data(), piece.size(), 0);
    if (count <= 0) return false;
    buffer_.append(piece.data(), static_cast<std::size_t>(count));
  }
  return true;
}

std::optional<RawClient::Reply> RawClient::receive() {
  while (true) {
    if (!fill(kFixedHeader)) return std::nullopt;
    const std::size_t bodySize = numberAt(buffer_, 4);
    const std::size_t headerSize = (kFixedHeader + numberAt(buffer_, 12) + 7) / 8 * 8;
    if (!fill(headerSize + bodySize)) return std::nullopt;
    const std::string header = buffer_.substr(0, headerSize);
    std::string body = buffer_.substr(headerSize, bodySize);
    buffer_.erase(0, headerSize + bodySize);
    const char type = header[1];
    if (type == kMethodReply || type == kErrorReply) {
      return Reply{type == kErrorReply, replySerial(header), std::move(body)};
    }
  }
}

RawClient::Reply RawClient::call(std::string_view member, std::string_view signature, std::string_view body) {
  const std::string message = methodCall(++serial_, member, signature, body);
  if (send(message)) {
    while (auto reply = receive()) {
      if (reply->to == serial_) return std::move(*reply);
    }
  }
  throw std::runtime_error("the helper closed the connection");
}

bool RawClient::seesEnd() {
  std::array<char, 4096> piece{};
  while (true) {
    pollfd readable{socket_.get(), POLLIN, 0};
    if (poll(&readable, 1, static_cast<int>(patience_.count())) != 1) return false;
    if (recv(socket_.get(), piece.data(), piece.size(), 0) <= 0) return true;
  }
}

}  // namespace molvane::e2e
