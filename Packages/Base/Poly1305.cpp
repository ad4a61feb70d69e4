#include "Base/Poly1305.hpp"

#include <openssl/evp.h>

#include <stdexcept>

namespace molvane {

namespace {

struct MacDeleter {
  void operator()(EVP_MAC* mac) const noexcept { EVP_MAC_free(mac); }
  void operator()(EVP_MAC_CTX* context) const noexcept { EVP_MAC_CTX_free(context); }
};

void require(bool ok) {
  if (!ok) throw std::runtime_error("Poly1305 is not available");
}

}  // namespace

struct Poly1305::State {
  std::unique_ptr<EVP_MAC, MacDeleter> mac{EVP_MAC_fetch(nullptr, "POLY1305", nullptr)};
  std::unique_ptr<EVP_MAC_CTX, MacDeleter> context{mac ? EVP_MAC_CTX_new(mac.get()) : nullptr};
};

Poly1305::Poly1305(const Key& key) : state_(std::make_unique<State>()) {
  require(state_->context && EVP_MAC_init(state_->context.get(), key.data(), key.size(), nullptr) == 1);
}

Poly1305::~Poly1305() = default;

void Poly1305::update(std::span<const std::byte> bytes) {
  const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  require(EVP_MAC_update(state_->context.get(), data, bytes.size()) == 1);
}

Poly1305::Tag Poly1305::finish() {
  Tag tag{};
  std::size_t size = 0;
  require(EVP_MAC_final(state_->context.get(), tag.data(), &size, tag.size()) == 1 && size == tag.size());
  return tag;
}

}  // namespace molvane
