#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "HelperProtocol/HelperXPCProtocol.hpp"
#include "HelperProtocol/dbus/Decoder.hpp"
#include "HelperProtocol/dbus/Encoder.hpp"
#include "HelperProtocol/dbus/ProtocolError.hpp"

// How the values of MolvaneHelperXPCProtocol stand on the wire; both ends use the same.
namespace molvane::dbus {

inline void write(Encoder& encoder, bool value) { encoder.boolean(value); }
inline void write(Encoder& encoder, std::int64_t value) { encoder.int64(value); }
inline void write(Encoder& encoder, const std::string& value) { encoder.text(value); }
inline void write(Encoder& encoder, const Data& value) { encoder.byteArray(value); }

/// An array of none or one. Texts and documents, the only values that may be absent, are aligned to four.
template <typename Value>
void write(Encoder& encoder, const std::optional<Value>& value) {
  const Encoder::Array array = encoder.beginArray(4);
  if (value) write(encoder, *value);
  encoder.endArray(array);
}

inline void read(Decoder& decoder, bool& value) { value = decoder.boolean(); }
inline void read(Decoder& decoder, std::int64_t& value) { value = decoder.int64(); }
inline void read(Decoder& decoder, std::string& value) { value = decoder.string(); }
inline void read(Decoder& decoder, Data& value) {
  const ByteView bytes = decoder.byteArray();
  value.assign(bytes.begin(), bytes.end());
}

template <typename Value>
void read(Decoder& decoder, std::optional<Value>& value) {
  const std::size_t end = decoder.beginArray(4);
  value.reset();
  if (decoder.position() < end) {
    Value element;
    read(decoder, element);
    value = std::move(element);
  }
  if (decoder.position() < end) throw ProtocolError("more values than one");
  decoder.endArray(end);
}

}  // namespace molvane::dbus
