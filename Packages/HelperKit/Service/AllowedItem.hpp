#pragma once

#include <cstdint>
#include <string>

#include "Platform/DirectoryHandle.hpp"

namespace molvane {

/// An item below one of the allowed roots, acted on without ever leaving the root.
///
/// The way from the root down to the item is walked component by component and no link on it is followed; a
/// link is refused as denied. Whatever is swapped on the way while the work goes on, nothing outside the root
/// is touched. The root itself is trusted and may be reached through links.
class AllowedItem {
 public:
  /// `path` is standardised and equals `root` or lies below it.
  AllowedItem(std::string root, std::string path);

  /// Removes the item permanently and recursively; a link is removed itself. Throws HelperServiceError
  /// (notFound, also for a link whose target is missing; denied) or the std::system_error of the removal.
  void remove() const;

  /// The item's own size for anything but a folder; for a folder the sum that logicalSize of
  /// Platform/TreeSize.hpp gives. A link to a folder holds nothing. Throws HelperServiceError (notFound,
  /// denied) or std::system_error.
  [[nodiscard]] std::int64_t logicalSize() const;

 private:
  [[nodiscard]] HeldItem hold() const;

  const std::string root_;
  const std::string path_;
};

}  // namespace molvane
