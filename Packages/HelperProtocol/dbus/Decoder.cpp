#include "HelperProtocol/dbus/Decoder.hpp"

#include "HelperProtocol/dbus/Limits.hpp"
#include "HelperProtocol/dbus/ProtocolError.hpp"
#include "HelperProtocol/dbus/Syntax.hpp"

namespace molvane::dbus {

namespace {

template <typename Integer>
Integer load(ByteView bytes, ByteOrder order) noexcept {
  Integer value = 0;
  for (std::size_t i = 0; i < sizeof(Integer); ++i) {
    const std::size_t place = order == ByteOrder::little ? i : sizeof(Integer) - 1 - i;
    value |= static_cast<Integer>(bytes[i]) << (8 * place);
  }
  return value;
}

/// Size, and alignment, of the types that always take the same room; 0 for the others. A boolean is left out:
/// not every value is one.
constexpr std::size_t fixedSize(char type) noexcept {
  switch (type) {
    case 'y':
      return 1;
    case 'n':
    case 'q':
      return 2;
    case 'i':
    case 'u':
    case 'h':
      return 4;
    case 'x':
    case 't':
    case 'd':
      return 8;
    default:
      return 0;
  }
}

constexpr std::size_t alignmentOf(char type) noexcept {
  if (const std::size_t size = fixedSize(type); size != 0) return size;
  switch (type) {
    case '(':
    case '{':
      return 8;
    case 'g':
    case 'v':
      return 1;
    default:
      return 4;
  }
}

/// Length of the type at the head of `types`, which is that of an array's elements and well-formed.
std::size_t arrayElementLength(std::string_view types) noexcept {
  if (types.front() != '{') return leadingTypeLength(types);
  const std::size_t key = 2;
  return key + leadingTypeLength(types.substr(key)) + 1;
}

}  // namespace

ByteView Decoder::take(std::size_t length) {
  if (length > bytes_.size() - position_) throw ProtocolError("a value goes beyond the end of its message");
  const ByteView taken = bytes_.subspan(position_, length);
  position_ += length;
  return taken;
}

void Decoder::align(std::size_t alignment) {
  for (const std::uint8_t byte : take(paddingTo(alignment, position_))) {
    if (byte != 0) throw ProtocolError("padding that is not zero");
  }
}

std::uint8_t Decoder::byte() { return take(1)[0]; }

bool Decoder::boolean() {
  const std::uint32_t value = uint32();
  if (value > 1) throw ProtocolError("a boolean that is neither true nor false");
  return value == 1;
}

std::uint32_t Decoder::uint32() {
  align(4);
  return load<std::uint32_t>(take(4), order_);
}

std::int64_t Decoder::int64() {
  align(8);
  return static_cast<std::int64_t>(load<std::uint64_t>(take(8), order_));
}

std::string_view Decoder::string() {
  const std::size_t length = uint32();
  const std::string_view text = asText(take(length));
  if (byte() != 0) throw ProtocolError("a string that does not end with NUL");
  if (!isText(text)) throw ProtocolError("a string that is not UTF-8 or holds NUL");
  return text;
}

std::string_view Decoder::objectPath() {
  const std::string_view path = string();
  if (!isObjectPath(path)) throw ProtocolError("a malformed object path");
  return path;
}

std::string_view Decoder::signature() {
  const std::size_t length = byte();
  const std::string_view text = asText(take(length));
  if (byte() != 0) throw ProtocolError("a signature that does not end with NUL");
  if (!isSignature(text)) throw ProtocolError("a malformed signature");
  return text;
}

std::size_t Decoder::arrayLength() {
  const std::size_t length = uint32();
  if (length > kMaxArraySize) throw ProtocolError("an array beyond the protocol's limit");
  return length;
}

ByteView Decoder::byteArray() { return take(arrayLength()); }

std::size_t Decoder::beginArray(std::size_t elementAlignment) {
  const std::size_t length = arrayLength();
  align(elementAlignment);
  if (length > bytes_.size() - position_) throw ProtocolError("an array goes beyond the end of its message");
  return position_ + length;
}

void Decoder::endArray(std::size_t end) const {
  if (position_ != end) throw ProtocolError("an element goes beyond the end of its array");
}

void Decoder::expectEnd() const {
  if (position_ != bytes_.size()) throw ProtocolError("bytes behind the last value");
}

void Decoder::skip(std::string_view& types, int depth) {
  if (depth > kMaxDepth) throw ProtocolError("values nested too deeply");
  const char head = types.front();
  types.remove_prefix(1);
  if (const std::size_t size = fixedSize(head); size != 0) {
    align(size);
    take(size);
    return;
  }
  switch (head) {
    case 'b':
      boolean();
      return;
    case 's':
      string();
      return;
    case 'o':
      objectPath();
      return;
    case 'g':
      signature();
      return;
    case 'a':
      skipArray(types, depth + 1);
      return;
    case 'v':
      skipVariant(depth + 1);
      return;
    default:
      // A structure or a dictionary's entry: its members, and then its end.
      align(8);
      while (types.front() != ')' && types.front() != '}') skip(types, depth + 1);
      types.remove_prefix(1);
  }
}

void Decoder::skipVariant(int depth) {
  std::string_view held = signature();
  if (held.empty() || leadingTypeLength(held) != held.size()) {
    throw ProtocolError("a variant that does not hold exactly one value");
  }
  skip(held, depth);
}

void Decoder::skipArray(std::string_view& types, int depth) {
  const std::string_view element = types.substr(0, arrayElementLength(types));
  types.remove_prefix(element.size());
  const std::size_t end = beginArray(alignmentOf(element.front()));
  if (const std::size_t size = fixedSize(element.front()); size != 0) {
    if ((end - position_) % size != 0) throw ProtocolError("an array that ends inside an element");
    take(end - position_);
    return;
  }
  while (position_ < end) {
    std::string_view rest = element;
    skip(rest, depth);
  }
  endArray(end);
}

}  // namespace molvane::dbus
