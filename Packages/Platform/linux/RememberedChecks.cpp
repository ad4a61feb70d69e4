#include "Platform/linux/RememberedChecks.hpp"

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "Platform/DirectoryHandle.hpp"
#include "Platform/SafeFile.hpp"
#include "Platform/linux/RememberedChecksCoding.hpp"

namespace molvane {
namespace {

const std::string kFileName = "checked-peers.json";
constexpr mode_t kFileMode = 0600;
constexpr std::size_t kMostBytes = std::size_t{256} << 10U;

}  // namespace

RememberedChecks::RememberedChecks(std::string folder) : folder_(std::move(folder)) {
  if (folder_.empty()) return;
  try {
    const std::string document =
        readStrictly(openFolder(folder_), kFileName, {geteuid(), kFileMode, kMostBytes});
    for (RememberedCheck& check : decodedChecks(document, bootIdentifier())) {
      if (checks_.size() == kCapacity) break;
      checks_.push_back(std::make_shared<const RememberedCheck>(std::move(check)));
    }
  } catch (const std::exception&) {
    checks_.clear();  // as if nothing had been remembered
  }
}

std::shared_ptr<const RememberedCheck> RememberedChecks::find(const FileIdentity& executable,
                                                              std::string_view requirement) {
  const MutexLock lock(mutex_);
  const auto found = locate(executable, requirement);
  return found == checks_.end() ? nullptr : *found;
}

void RememberedChecks::remember(RememberedCheck check) {
  const Checks checks = insert(std::move(check));
  if (folder_.empty()) return;
  try {
    replaceFile(openFolder(folder_), kFileName, encodedChecks(checks, bootIdentifier()), kFileMode);
  } catch (const std::exception&) {
    // The next process checks for itself.
  }
}

RememberedChecks::Checks RememberedChecks::insert(RememberedCheck check) {
  auto entry = std::make_shared<const RememberedCheck>(std::move(check));
  const MutexLock lock(mutex_);
  const auto older = locate(entry->executable, entry->requirement);
  if (older != checks_.end()) {
    *older = std::move(entry);
  } else {
    checks_.push_front(std::move(entry));
    if (checks_.size() > kCapacity) checks_.pop_back();
  }
  return checks_;
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
