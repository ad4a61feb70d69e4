#pragma once

#include <cstddef>
#include <span>

namespace molvane {

/// Zero-filled memory that begins on a page, as devices want it. It is taken from the system and goes back
/// to it; pages, large ones where the system has them, cost nothing before they are touched.
class PageBuffer {
 public:
  /// Throws std::system_error (ENOMEM). `size` is in bytes and not 0.
  explicit PageBuffer(std::size_t size);
  ~PageBuffer();
  PageBuffer(const PageBuffer&) = delete;
  PageBuffer& operator=(const PageBuffer&) = delete;

  [[nodiscard]] std::span<std::byte> bytes() const noexcept { return {begin_, size_}; }

 private:
  std::byte* begin_;
  const std::size_t size_;
};

}  // namespace molvane
