#pragma once

#include <string>

namespace molvane::ctl {

/// `path` seen from the current folder, which the helper does not know; one that is empty or absolute stays
/// as it is. Throws std::runtime_error with a sentence for the person when the current folder has no path, or
/// one that the connection cannot carry.
[[nodiscard]] std::string absolutePath(const std::string& path);

}  // namespace molvane::ctl
