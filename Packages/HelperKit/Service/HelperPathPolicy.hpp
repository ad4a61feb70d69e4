#pragma once

#include <set>
#include <string>

#include "Core/PathAllowlist.hpp"

namespace molvane::HelperPathPolicy {

/// Last path components that are never removed or measured, wherever they stand under an allowed root.
[[nodiscard]] const std::set<std::string>& defaultDeniedBasenames();

/// The helper's roots: the caches and logs folders of `home`, joined as plain text, and the process's
/// temporary folder.
[[nodiscard]] PathAllowlist userSpaceAllowlist(const std::string& home);

/// The single root given: the same checks over a scratch folder.
[[nodiscard]] PathAllowlist fixtureAllowlist(const std::string& root);

}  // namespace molvane::HelperPathPolicy
