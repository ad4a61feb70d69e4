#pragma once

#include <string>

#include "Platform/DirectoryHandle.hpp"

namespace molvane {

/// Removes an item permanently, a folder with all that it holds, a link itself and never its target.
///
/// Works relative to the held folder and to each folder that it has opened below, so whatever is swapped
/// under it meanwhile, nothing outside the item's folder is touched. Other file systems mounted below the
/// item are not entered: they end the removal with EXDEV (EBUSY for a mount on the item itself). Deep trees
/// cost memory, not descriptors or stack. What somebody else removes first counts as removed, except the item
/// itself: of several removals of one item at most one returns. A second thread helps with a large tree; it
/// is done when this returns or throws.
///
/// Throws std::system_error for the first thing that cannot be removed, and stops there; what is gone by then
/// stays gone. ENOTEMPTY when entries keep appearing faster than they are removed.
void removeItem(const HeldItem& item);

}  // namespace molvane
