#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace molvane {

/// A universally unique identifier.
class Uuid {
 public:
  /// A new random one (version 4), from the system's secure random source.
  [[nodiscard]] static Uuid random();

  /// Reads the 36-character form with hyphens, in either case; nothing for any other text.
  [[nodiscard]] static std::optional<Uuid> parse(std::string_view text);

  /// The 36-character form in upper case.
  [[nodiscard]] std::string text() const;

  friend bool operator==(const Uuid&, const Uuid&) = default;

 private:
  std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace molvane
