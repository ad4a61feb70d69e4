#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "Base/CaseError.hpp"
#include "Core/MaintenanceTask.hpp"
#include "HelperKit/Applications/PersonalItem.hpp"
#include "Platform/FileDescriptor.hpp"

/// Which received applications may be installed, and what they may replace.
namespace molvane::ApplicationInstallPolicy {

inline constexpr const char* stagingRoot = "/Library/Application Support/MacMolvane/Apps";
inline constexpr const char* applications = "/Applications";
inline constexpr double copyTimeout = 600;        ///< seconds
inline constexpr double assessmentTimeout = 120;  ///< seconds

enum class FailureCase {
  outsideInbox,  ///< carries the path, as do the next three
  symlink,
  notOwned,
  notAnApp,
  isProtected,  ///< carries the bundle's name, as does the next
  otherApp,
  notAccepted,  ///< carries what the assessment said, or that it did not finish in time
  failed,       ///< carries the whole sentence
};
[[nodiscard]] std::string describe(FailureCase which, const std::string& payload);
using Failure = CaseError<FailureCase>;

/// The bundle identifier in the Info.plist of an open bundle folder, in XML or binary. Nothing when the file,
/// the key or a string under it is missing, when the file has more than 1 MiB, and when it or the folder that
/// holds it is a link.
[[nodiscard]] std::optional<std::string> bundleID(const FileDescriptor& bundle);
/// That of the bundle folder `name` in `folder`; nothing, too, when that is no folder.
[[nodiscard]] std::optional<std::string> bundleID(const FileDescriptor& folder, const std::string& name);

/// An application that may be installed.
struct ReceivedApplication {
  ReceivedItem received;
  std::string bundleID;
};

/// Holds the application at `path`: a folder of that user below the company inbox, with a bundle identifier
/// and no protected name, be it another name of the same item. Throws Failure; the path that it carries is
/// standardised.
[[nodiscard]] ReceivedApplication validate(const std::string& path, const std::string& home, uid_t peerUID);

/// Where an application of that name goes.
struct Destination {
  std::string path;
  bool holdsOlderCopy = false;
};

/// Where an application goes in the folder `applications`, which is open as `folder`: where nothing is, or
/// where an application of the same identifier is. Throws Failure (otherApp; isProtected when what is there
/// bears a protected name, too), or std::system_error when the folder cannot be looked at.
[[nodiscard]] Destination destination(const std::string& name, const std::string& bundleID,
                                      const std::string& applications, const FileDescriptor& folder);

[[nodiscard]] MaintenanceTask::Command copy(const std::string& from, const std::string& to);
/// Whether the system would open it.
[[nodiscard]] MaintenanceTask::Command assess(const std::string& path);

}  // namespace molvane::ApplicationInstallPolicy
