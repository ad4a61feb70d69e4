#include "Core/PathAllowlist.hpp"

#include "Platform/StandardPath.hpp"

namespace molvane {

std::string describe(PathAllowlistErrorCase /*which*/, const std::string& path) {
  return "Path not allowed: " + path;
}

PathAllowlist::PathAllowlist(const std::vector<std::string>& allowedPrefixes) {
  allowedPrefixes_.reserve(allowedPrefixes.size());
  for (const std::string& prefix : allowedPrefixes) allowedPrefixes_.push_back(normalize(prefix));
}

std::string PathAllowlist::normalize(std::string_view path) { return standardizingPath(path); }

std::optional<std::string> PathAllowlist::rootContaining(std::string_view path) const {
  const std::string standardized = normalize(path);
  if (standardized.empty() || standardized == "/") return std::nullopt;
  for (const std::string& root : allowedPrefixes_) {
    if (standardized == root) return root;
    // The slash keeps a sibling whose name merely begins like the root's last component out.
    const std::string below = root.ends_with('/') ? root : root + '/';
    if (standardized.starts_with(below)) return root;
  }
  return std::nullopt;
}

void PathAllowlist::assertAllowed(const std::string& path) const {
  if (!allows(path)) throw PathAllowlistError(PathAllowlistErrorCase::notAllowed, path);
}

}  // namespace molvane
