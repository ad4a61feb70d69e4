#pragma once

#include <string_view>

namespace molvane {

/// Whether a folder of that name is a package: a bundle that the person sees as one item. Told by the
/// extension, letter case aside.
[[nodiscard]] bool isPackageName(std::string_view name);

}  // namespace molvane
