#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace molvane {

/// Poly1305 (RFC 8439), fed piece by piece: an authenticator for one message under a secret key.
///
/// Tells whether two byte streams are equal, many times faster than SHA-256 does: under one random key that
/// nobody else knows, streams of L bytes that differ get the same tag with a probability of no more than
/// L / 2^107 (D. J. Bernstein, "The Poly1305-AES message-authentication code", 2005), whoever chose them. A
/// tag says nothing once its key is gone. One thread at a time.
class Poly1305 {
 public:
  using Key = std::array<std::uint8_t, 32>;
  using Tag = std::array<std::uint8_t, 16>;

  /// Throws std::runtime_error when the cryptography library cannot provide Poly1305.
  explicit Poly1305(const Key& key);
  Poly1305(const Poly1305&) = delete;
  Poly1305& operator=(const Poly1305&) = delete;
  ~Poly1305();

  /// Adds bytes. Must not follow finish().
  void update(std::span<const std::byte> bytes);

  /// The tag of everything added. Ends this object.
  [[nodiscard]] Tag finish();

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace molvane
