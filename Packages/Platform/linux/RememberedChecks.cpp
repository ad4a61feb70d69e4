#include "Platform/linux/RememberedChecks.hpp"

#include <algorithm>
#include <utility>

namespace molvane {

std::shared_ptr<const RememberedCheck> RememberedChecks::find(const FileIdentity& executable,
                                                              std::string_view requirement) {
  const MutexLock lock(mutex_);
  const auto found = locate(executable, requirement);
  return found == checks_.end() ? nullptr : *found;
}

void RememberedChecks::remember(RememberedCheck check) {
  auto entry = std::make_shared<const RememberedCheck>(std::move(check));
  const MutexLock lock(mutex_);
  const auto older = locate(entry->executable, entry->requirement);
  if (older != checks_.end()) {
    *older = std::move(entry);
    return;
  }
  checks_.push_front(std::move(entry));
  if (checks_.size() > kCapacity) checks_.pop_back();
}

RememberedChecks::Checks::iterator RememberedChecks::locate(const FileIdentity& executable,
                                                            std::string_view requirement) {
  const auto found = std::find_if(checks_.begin(), checks_.end(), [&](const auto& check) {
    return check->executable == executable && check->requirement == requirement;
  });
  if (found != checks_.end()) checks_.splice(checks_.begin(), checks_, found);
  return found;
}

}  // namespace molvane
