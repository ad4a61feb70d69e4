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
///
/// They may outlive the process in a file, so that a helper that is started for one call need not check the
/// same client again. Only a file of the caller's own that nobody else may touch, written since the system
/// was started, is believed; whatever is wrong with it, the checks are carried out anew.
class RememberedChecks {
 public:
  static constexpr std::size_t kCapacity = 16;

  /// Begins with what stands in the file in `folder`, which must be closed to everybody else, and keeps it up
  /// to date. Without a folder there is no file.
  explicit RememberedChecks(std::string folder = {});

  /// The check of this executable against this requirement; null when it is not remembered. Whether the other
  /// things that it rested on are still the same is for the caller to find out.
  [[nodiscard]] std::shared_ptr<const RememberedCheck> find(const FileIdentity& executable,
                                                            std::string_view requirement);

  /// Remembers `check` in place of an older one of the same executable and requirement. The one that was
  /// found least recently makes room for it. Writes the file, if there is one; a failure costs only the next
  /// process a check.
  void remember(RememberedCheck check);

 private:
  using Checks = std::list<std::shared_ptr<const RememberedCheck>>;

  // The check, moved to the front; end() when there is none.
  Checks::iterator locate(const FileIdentity& executable, std::string_view requirement)
      MOLVANE_REQUIRES(mutex_);
  Checks insert(RememberedCheck check);

  const std::string folder_;
  Mutex mutex_;
  Checks checks_ MOLVANE_GUARDED_BY(mutex_);  // the most recent first
};

}  // namespace molvane
