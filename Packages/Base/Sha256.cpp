#include "Base/Sha256.hpp"

#include <openssl/evp.h>

#include <stdexcept>

namespace molvane {

namespace {

struct ContextDeleter {
  void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
};

void require(bool ok) {
  if (!ok) throw std::runtime_error("SHA-256 is not available");
}

}  // namespace

struct Sha256::State {
  std::unique_ptr<EVP_MD_CTX, ContextDeleter> context{EVP_MD_CTX_new()};
};

Sha256::Sha256() : state_(std::make_unique<State>()) {
  require(state_->context && EVP_DigestInit_ex(state_->context.get(), EVP_sha256(), nullptr) == 1);
}

Sha256::Sha256(Sha256&& other) noexcept = default;
Sha256& Sha256::operator=(Sha256&& other) noexcept = default;
Sha256::~Sha256() = default;

void Sha256::update(const void* data, std::size_t size) {
  require(EVP_DigestUpdate(state_->context.get(), data, size) == 1);
}

Sha256Digest Sha256::finish() {
  Sha256Digest digest{};
  require(EVP_DigestFinal_ex(state_->context.get(), digest.data(), nullptr) == 1);
  return digest;
}

Sha256Digest sha256(std::string_view bytes) {
  Sha256 hasher;
  hasher.update(bytes);
  return hasher.finish();
}

std::string hexText(const Sha256Digest& digest) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(digest.size() * 2);
  for (const std::uint8_t byte : digest) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

}  // namespace molvane
