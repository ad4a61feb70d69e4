#include "HelperKit/Applications/PersonalItem.hpp"

#include <fcntl.h>

#include <stdexcept>
#include <system_error>

#include "Base/PathText.hpp"

namespace molvane {

HeldItem walkFromHome(const std::string& home, const std::string& path) {
  std::string root = home;
  while (root.size() > 1 && root.back() == '/') root.pop_back();
  try {
    return walkToItem(root, path);
  } catch (const std::invalid_argument&) {
    throw WalkError(WalkErrorCase::missing, path);
  }
}

std::string companyInbox(const std::string& home) {
  return appendingPathComponent(home, "Library/Caches/MacMolvane/Company");
}

bool liesInCompanyInbox(const std::string& path, const std::string& home) {
  const std::string prefix = companyInbox(home) + "/";
  return path.starts_with(prefix) && path.find("/../") == std::string::npos;
}

std::optional<struct stat> ReceivedItem::status() const {
  struct stat status {};
  if (fstatat(item.folder.get(), item.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return status;
}

std::string describe(InboxErrorCase which, const std::string& path) {
  return (which == InboxErrorCase::link ? "A link on the way to " : "Cannot reach ") + path;
}

ReceivedItem holdReceivedItem(const std::string& path, const std::string& home) {
  try {
    return {path, walkFromHome(home, path)};
  } catch (const WalkError& error) {
    const bool isLink = error.which() == WalkErrorCase::link;
    throw InboxError(isLink ? InboxErrorCase::link : InboxErrorCase::unreadable, path);
  } catch (const std::system_error&) {
    throw InboxError(InboxErrorCase::unreadable, path);
  }
}

}  // namespace molvane
