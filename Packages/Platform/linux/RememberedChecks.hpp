#pragma once

#include <cstddef>
#include <ctime>
#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "Base/Mutex.hpp"
#include "Platform/linux/PlainFile.hpp"

namespace molvane {

/// A check that was passed, and everything on which it rested.
struct RememberedCheck {
  FileIdentity executable;
  std::string requirement;
  std::string signaturePath;
  FileIdentity signature;
  FileIdentity anchor;
  std::time_t validFrom = 0;
  std::time_t validUntil = 0;
};

/// The checks that were passed most recently. Any thread.
class RememberedChecks {
 public:
  static constexpr std::size_t kCapacity = 16;

  /// The check of this executable against this requirement; null when it is not remembered. Whether the other
  /// things that it rested on are still the same is for the caller to find out.
  [[nodiscard]] std::shared_ptr<const RememberedCheck> find(const FileIdentity& executable,
                                                            std::string_view requirement);

  /// Remembers `check` in place of an older one of the same executable and requirement. The one that was
  /// found least recently makes room for it.
  void remember(RememberedCheck check);

 private:
  using Checks = std::list<std::shared_ptr<const RememberedCheck>>;

  // The check, moved to the front; end() when there is none.
  Checks::iterator locate(const FileIdentity& executable, std::string_view requirement) REQUIRES(mutex_);

  Mutex mutex_;
  Checks checks_ GUARDED_BY(mutex_);  // the most recent first
};

}  // namespace molvane
