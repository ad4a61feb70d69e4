#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/CaseError.hpp"

namespace molvane {

enum class PathAllowlistErrorCase { notAllowed };
[[nodiscard]] std::string describe(PathAllowlistErrorCase which, const std::string& path);
/// Carries the path exactly as the caller passed it.
using PathAllowlistError = CaseError<PathAllowlistErrorCase>;

/// The folders under which items may be touched. A value; every function may be called from any thread.
///
/// The test is textual: it compares standardised paths byte by byte and says nothing about links on the way.
/// Whoever acts on an allowed path walks to it below the root without following any.
class PathAllowlist {
 public:
  /// Keeps the roots in standardised form, in the order given.
  explicit PathAllowlist(const std::vector<std::string>& allowedPrefixes);

  [[nodiscard]] const std::vector<std::string>& allowedPrefixes() const { return allowedPrefixes_; }

  /// The standardised form of a path.
  [[nodiscard]] static std::string normalize(std::string_view path);

  /// The first root that the path equals or lies below; nothing for a path outside every root, for an empty
  /// one and for "/" itself.
  [[nodiscard]] std::optional<std::string> rootContaining(std::string_view path) const;

  /// Whether there is such a root. A root itself is allowed.
  [[nodiscard]] bool allows(std::string_view path) const { return rootContaining(path).has_value(); }

  /// Throws PathAllowlistError unless the path is allowed.
  void assertAllowed(const std::string& path) const;

 private:
  std::vector<std::string> allowedPrefixes_;
};

}  // namespace molvane
