#include "HelperProtocol/dbus/MessageStream.hpp"

#include <algorithm>

namespace molvane::dbus {

namespace {

/// Enough for the calls that are usual; what is larger costs memory only while it is being handled.
constexpr std::size_t kUsualSize = 4096;
constexpr std::size_t kKeptSize = std::size_t{64} * 1024;
constexpr const char* kProcessEnded = "the peer's process has ended";

/// A client that has its answer often calls again at once. To wait for its socket alone and look at its
/// process afterwards makes a call a tenth faster than to wait for both, so that is done first, for this
/// long.
constexpr std::chrono::milliseconds kWaitForSocketAlone{100};

}  // namespace

std::string_view MessageStream::buffered() const noexcept {
  return asText(ByteView(buffer_).subspan(begin_, available()));
}

void MessageStream::makeRoom(std::size_t wanted) {
  if (buffer_.size() - begin_ >= wanted && end_ < buffer_.size()) return;
  std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_),
            buffer_.begin() + static_cast<std::ptrdiff_t>(end_), buffer_.begin());
  end_ -= begin_;
  begin_ = 0;
  // What a message announces is only granted at the pace at which it comes.
  const std::size_t size = std::min(std::max(wanted, kUsualSize), std::max(2 * end_, kUsualSize));
  if (size > buffer_.size()) buffer_.resize(size);
}

void MessageStream::releaseExcess() {
  if (buffer_.size() <= kKeptSize || available() > 0) return;
  buffer_ = Bytes();
  begin_ = end_ = 0;
}

void MessageStream::endWith(const FileDescriptor& process) {
  limitReceiving(socket_, kWaitForSocketAlone);
  process_ = &process;
}

bool MessageStream::readSome(std::optional<Deadline> deadline, bool wait) {
  const Deadline latest = deadline.value_or(Deadline::max());
  std::optional<std::size_t> count;
  while (!(count = receiveSome(socket_, buffer_.data() + end_, buffer_.size() - end_, wait))) {
    awaitInput(latest);
  }
  requireProcess();
  knownAlive_ = true;
  end_ += *count;
  return *count > 0;
}

void MessageStream::requireProcess() const {
  if (process_ != nullptr && isReadable(*process_)) throw ProtocolError(kProcessEnded);
}

void MessageStream::awaitInput(Deadline deadline) const {
  const FileDescriptor* ready = process_ != nullptr ? waitForEither(*process_, socket_, deadline)
                                : waitReadable(socket_, deadline) ? &socket_
                                                                  : nullptr;
  if (ready == nullptr) throw ProtocolError("the peer took too long");
  if (ready == process_) throw ProtocolError(kProcessEnded);
}

void MessageStream::fetch(Deadline deadline) {
  makeRoom(available() + 1);
  if (!readSome(deadline, false)) throw ProtocolError("the peer left during the handshake");
}

std::optional<Message> MessageStream::receive(std::optional<Duration> whole) {
  consume(std::exchange(last_, 0));
  releaseExcess();
  knownAlive_ = false;
  if (available() == 0) {
    begin_ = end_ = 0;
    makeRoom(kFrameSize);
    if (!readSome(std::nullopt, true)) return std::nullopt;
  }
  std::optional<Deadline> deadline;
  std::size_t size = kFrameSize;
  bool sized = false;
  while (true) {
    if (!sized && available() >= kFrameSize) {
      const Frame frame = frameOf(ByteView(buffer_).subspan(begin_, kFrameSize));
      if (frame.size > maxIncoming_) throw OversizedMessage(frame);
      size = frame.size;
      sized = true;
    }
    if (sized && available() >= size) break;
    if (whole && !deadline) deadline = std::chrono::steady_clock::now() + *whole;
    makeRoom(size);
    if (!readSome(deadline, !deadline)) throw ProtocolError("the peer left in the middle of a message");
  }
  if (!knownAlive_) requireProcess();
  last_ = size;
  return decodeMessage(ByteView(buffer_).subspan(begin_, size));
}

void MessageStream::discard(const Frame& oversized, Duration whole) {
  const Deadline deadline = std::chrono::steady_clock::now() + whole;
  std::size_t left = oversized.size;
  while (left > available()) {
    left -= available();
    begin_ = end_ = 0;
    makeRoom(kUsualSize);
    if (!readSome(deadline, false)) return;
  }
  consume(left);
}

void MessageStream::send(ByteView bytes, std::optional<Duration> stall) {
  while (!bytes.empty()) {
    const std::size_t count = sendSome(socket_, bytes);
    bytes = bytes.subspan(count);
    if (count > 0) continue;
    const Deadline deadline = stall ? std::chrono::steady_clock::now() + *stall : Deadline::max();
    if (!waitWritable(socket_, deadline)) throw ProtocolError("the peer does not take its answers");
  }
}

}  // namespace molvane::dbus
