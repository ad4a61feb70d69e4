#pragma once

#include <sys/types.h>

#include <string>

#include "Base/CaseError.hpp"
#include "Core/MaintenanceTask.hpp"
#include "HelperKit/Applications/PersonalItem.hpp"
#include "HelperKit/Applications/StagingFolder.hpp"

/// Which installer packages may be installed, and how one is made safe from the person who sent it.
namespace molvane::PackageInstallPolicy {

inline constexpr const char* stagingRoot = "/Library/Application Support/MacMolvane/Packages";
inline constexpr double assessmentTimeout = 120;  ///< seconds
inline constexpr double timeout = 3600;           ///< seconds, for the installer

enum class FailureCase {
  outsideInbox,  ///< carries the path, as do the next four
  symlink,
  notOwned,
  missing,
  notAPackage,
  notAccepted,    ///< carries what the assessment said, or that it did not finish in time
  installFailed,  ///< carries the whole sentence
};
[[nodiscard]] std::string describe(FailureCase which, const std::string& payload);
using Failure = CaseError<FailureCase>;

/// The folder in which packages must lie.
[[nodiscard]] std::string inbox(const std::string& home);

/// Holds the package at `path`: a regular file of that user below the inbox, that begins as installer
/// packages do. Throws Failure; what it carries is the standardised path.
[[nodiscard]] ReceivedItem validate(const std::string& path, const std::string& home, uid_t peerUID);

/// Copies what is in the held package's place now, if it still is a regular file of that user that begins as
/// installer packages do. Throws Failure, or the std::system_error of the copying; EFBIG for a file that
/// keeps growing while it is copied.
[[nodiscard]] StagedItem stage(const ReceivedItem& package, uid_t peerUID, const StagingFolder& root);

/// Whether the system would open it.
[[nodiscard]] MaintenanceTask::Command assess(const std::string& path);
[[nodiscard]] MaintenanceTask::Command install(const std::string& path);

}  // namespace molvane::PackageInstallPolicy
