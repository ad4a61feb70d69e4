#pragma once

#include <string>

#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// A name in an open folder. Holds neither of them.
struct ItemPlace {
  const FileDescriptor& folder;
  const std::string& name;
};

/// Moves an item to a place where nothing is, in one step; links are moved themselves. 0, or an errno: EEXIST
/// when something is there, which stays as it is.
///
/// Where the file system cannot look and move in one step, it is looked at first: an empty folder that comes
/// there in between is replaced then.
[[nodiscard]] int moveToFreePlace(ItemPlace from, ItemPlace to) noexcept;

/// Lets two items change places in one step: at no moment is there nothing in either place. 0, or an errno:
/// ENOENT when one of the two is missing, ENOTSUP when the system cannot do that here.
[[nodiscard]] int exchangeItems(ItemPlace one, ItemPlace other) noexcept;

}  // namespace molvane
