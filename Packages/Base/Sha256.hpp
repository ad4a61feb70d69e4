#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace molvane {

using Sha256Digest = std::array<std::uint8_t, 32>;

/// The digest as 64 lower-case hexadecimal digits.
[[nodiscard]] std::string hexText(const Sha256Digest& digest);

/// A SHA-256 that is fed piece by piece. Moves, does not copy. One thread at a time.
class Sha256 {
 public:
  /// Throws std::runtime_error when the cryptography library cannot provide SHA-256.
  Sha256();
  Sha256(Sha256&& other) noexcept;
  Sha256& operator=(Sha256&& other) noexcept;
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;
  ~Sha256();

  /// Adds `size` bytes. Must not follow finish().
  void update(const void* data, std::size_t size);
  void update(std::string_view bytes) { update(bytes.data(), bytes.size()); }

  /// The digest of everything added. Ends this hasher: it can be destroyed or assigned to, nothing else.
  [[nodiscard]] Sha256Digest finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// The digest of one piece.
[[nodiscard]] Sha256Digest sha256(std::string_view bytes);

}  // namespace molvane
