#include "HelperProtocol/dbus/Sasl.hpp"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include "HelperProtocol/dbus/ProtocolError.hpp"

namespace molvane::dbus {

namespace {

constexpr std::size_t kMaxLine = 512;
constexpr int kMaxLines = 16;
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kRejection = "REJECTED EXTERNAL\r\n";

constexpr bool isPrintable(char c) noexcept { return c >= ' ' && c <= '~'; }

/// The line at the head of `input`, without its end; nothing while the end has not come yet.
std::optional<std::string_view> leadingLine(std::string_view input) {
  const std::size_t end = input.substr(0, kMaxLine).find(kLineEnd);
  const std::string_view line = input.substr(0, end);
  // The first half of the end may be all that has come of it.
  const bool halfEnd = end == std::string_view::npos && line.ends_with('\r');
  const std::string_view text = line.substr(0, line.size() - (halfEnd ? 1 : 0));
  if (!std::all_of(text.begin(), text.end(), isPrintable))
    throw ProtocolError("a handshake that is not text");
  if (end != std::string_view::npos) return line;
  if (input.size() >= kMaxLine) throw ProtocolError("a line of the handshake that does not end");
  return std::nullopt;
}

/// The first word of a line, and what follows it.
struct Command {
  std::string_view word;
  std::string_view rest;
  bool hasRest;
};

Command split(std::string_view line) noexcept {
  const std::size_t space = line.find(' ');
  if (space == std::string_view::npos) return {line, {}, false};
  return {line.substr(0, space), line.substr(space + 1), true};
}

/// The uid that a claim names: decimal digits, each in two hexadecimal ones. Nothing when it names none.
std::optional<std::uint32_t> claimedUID(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  std::string digits;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    unsigned char digit = 0;
    const auto [end, error] = std::from_chars(hex.data() + i, hex.data() + i + 2, digit, 16);
    if (error != std::errc() || end != hex.data() + i + 2) return std::nullopt;
    digits += static_cast<char>(digit);
  }
  std::uint32_t uid = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), uid);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return uid;
}

}  // namespace

SaslServer::SaslServer(std::uint32_t peerUID, std::string guid) : peerUID_(peerUID), guid_(std::move(guid)) {}

std::size_t SaslServer::receive(std::string_view input, std::string& answer) {
  std::size_t taken = 0;
  if (state_ == State::nul && !input.empty()) {
    if (input.front() != '\0') throw ProtocolError("a handshake that does not begin with NUL");
    state_ = State::auth;
    taken = 1;
  }
  while (state_ != State::nul && !done()) {
    const std::optional<std::string_view> line = leadingLine(input.substr(taken));
    if (!line) break;
    if (++lines_ > kMaxLines) throw ProtocolError("a handshake that comes to no end");
    taken += line->size() + kLineEnd.size();
    take(*line, answer);
  }
  return taken;
}

void SaslServer::take(std::string_view line, std::string& answer) {
  const Command command = split(line);
  if (command.word == "AUTH" && state_ == State::auth) {
    const Command mechanism = split(command.rest);
    takeAuth(mechanism.word, mechanism.rest, mechanism.hasRest, answer);
  } else if (command.word == "DATA" && state_ == State::data) {
    takeClaim(command.rest, answer);
  } else if (command.word == "CANCEL" || command.word == "ERROR") {
    reject(answer);
  } else if (command.word == "BEGIN") {
    if (state_ != State::begin) throw ProtocolError("a peer that begins without having been let in");
    state_ = State::done;
  } else if (command.word == "NEGOTIATE_UNIX_FD") {
    answer += "ERROR Descriptors are not passed here\r\n";
  } else {
    answer += "ERROR Not understood\r\n";
  }
}

void SaslServer::takeAuth(std::string_view mechanism, std::string_view claim, bool claims,
                          std::string& answer) {
  if (mechanism != "EXTERNAL") {
    reject(answer);
  } else if (claims) {
    takeClaim(claim, answer);
  } else {
    state_ = State::data;
    answer += "DATA\r\n";
  }
}

void SaslServer::takeClaim(std::string_view hex, std::string& answer) {
  if (!hex.empty() && claimedUID(hex) != peerUID_) {
    reject(answer);
    return;
  }
  state_ = State::begin;
  answer += "OK " + guid_ + "\r\n";
}

void SaslServer::reject(std::string& answer) {
  state_ = State::auth;
  answer += kRejection;
}

std::string_view SaslClient::greeting() noexcept {
  using namespace std::string_view_literals;
  return "\0AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n"sv;
}

std::size_t SaslClient::receive(std::string_view input) {
  std::size_t taken = 0;
  while (!done()) {
    const std::optional<std::string_view> line = leadingLine(input.substr(taken));
    if (!line) break;
    taken += line->size() + kLineEnd.size();
    take(*line);
  }
  return taken;
}

void SaslClient::take(std::string_view line) {
  const std::string_view word = split(line).word;
  if (state_ == State::data && word == "DATA") {
    state_ = State::ok;
  } else if (state_ == State::ok && word == "OK") {
    state_ = State::done;
  } else {
    throw ProtocolError("the server did not let the client in");
  }
}

}  // namespace molvane::dbus
