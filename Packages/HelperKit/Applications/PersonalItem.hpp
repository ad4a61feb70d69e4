#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "Base/CaseError.hpp"
#include "Platform/DirectoryHandle.hpp"

// What lies in a person's own folders, where the person may change anything at any moment.

namespace molvane {

/// Walks from the home folder, which is trusted, down to the folder that holds the item at `path`, without
/// following a link on the way. Throws as walkToItem does, and WalkError for a path that is not below `home`.
[[nodiscard]] HeldItem walkFromHome(const std::string& home, const std::string& path);

/// The folder into which a person receives what the company sends, below the home folder.
[[nodiscard]] std::string companyInbox(const std::string& home);

/// Whether a standardised path lies below the company inbox, as text.
[[nodiscard]] bool liesInCompanyInbox(const std::string& path, const std::string& home);

/// Something below the company inbox, held.
struct ReceivedItem {
  std::string path;  ///< standardised
  HeldItem item;

  /// What it is now, itself and not its target; nothing when that cannot be read.
  [[nodiscard]] std::optional<struct stat> status() const;
};

/// Why an item of the inbox cannot be held; each carries the item's path.
enum class InboxErrorCase {
  link,        ///< a link on the way
  unreadable,  ///< nothing there, or a way that cannot be walked
};
[[nodiscard]] std::string describe(InboxErrorCase which, const std::string& path);
using InboxError = CaseError<InboxErrorCase>;

/// Holds the item at `path`, which liesInCompanyInbox. The item itself is not looked at. Throws InboxError.
[[nodiscard]] ReceivedItem holdReceivedItem(const std::string& path, const std::string& home);

}  // namespace molvane
