#include "Base/Base64.hpp"

#include <openssl/evp.h>

#include <climits>

#include "Base/Bytes.hpp"

namespace molvane {

std::optional<std::string> base64Decoded(std::string_view text) {
  // OpenSSL forgives white space around the text and counts padding as zero bytes; both are looked at here.
  constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::size_t digits = text.find_last_not_of('=') + 1;
  const std::size_t padding = text.size() - digits;
  if (text.size() % 4 != 0 || text.size() > INT_MAX || padding > 2) return std::nullopt;
  if (text.substr(0, digits).find_first_not_of(kAlphabet) != std::string_view::npos) return std::nullopt;

  std::string bytes(text.size() / 4 * 3, '\0');
  auto* target = reinterpret_cast<unsigned char*>(bytes.data());
  if (EVP_DecodeBlock(target, asBytes(text).data(), static_cast<int>(text.size())) < 0) return std::nullopt;
  bytes.resize(bytes.size() - padding);
  return bytes;
}

}  // namespace molvane
