#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Base/Bytes.hpp"
#include "Base/JsonCoding.hpp"

namespace molvane {

/// A JSON document on the connection: UTF-8 bytes, uninterpreted there.
using Data = std::vector<std::uint8_t>;

/// The document as a T. Throws a DecodingError when it is no JSON or no T.
template <typename T>
[[nodiscard]] T decodedDocument(const Data& document) {
  return decodedJson<T>(asText(document));
}

template <typename T>
[[nodiscard]] Data encodedDocument(const T& value) {
  const std::string text = encodedJson(value);
  return {text.begin(), text.end()};
}

}  // namespace molvane
