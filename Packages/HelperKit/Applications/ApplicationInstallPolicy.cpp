#include "HelperKit/Applications/ApplicationInstallPolicy.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "Base/NSError.hpp"
#include "Base/PathText.hpp"
#include "Base/PropertyList.hpp"
#include "HelperKit/Applications/AppRemovalPolicy.hpp"
#include "Platform/SafeFile.hpp"
#include "Platform/StandardPath.hpp"

namespace molvane::ApplicationInstallPolicy {

namespace {

constexpr std::size_t kMaximumInfoPlistSize = std::size_t{1} << 20U;

FileDescriptor openFolderIn(const FileDescriptor& parent, const std::string& name) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  return FileDescriptor(openat(parent.get(), name.c_str(), kFlags));
}

ReceivedItem hold(const std::string& app, const std::string& home) {
  try {
    return holdReceivedItem(app, home);
  } catch (const InboxError& error) {
    throw Failure(error.which() == InboxErrorCase::link ? FailureCase::symlink : FailureCase::notAnApp, app);
  }
}

}  // namespace

std::string describe(FailureCase which, const std::string& payload) {
  switch (which) {
    case FailureCase::outsideInbox:
      return "Only apps received in company mode can be installed: " + payload;
    case FailureCase::symlink:
      return "Refusing to follow a symlink: " + payload;
    case FailureCase::notOwned:
      return "The app does not belong to the person logged in: " + payload;
    case FailureCase::notAnApp:
      return "Not an application: " + payload;
    case FailureCase::isProtected:
      return payload + " is protected and cannot be replaced.";
    case FailureCase::otherApp:
      return "/Applications already has a different app called " + payload + ".";
    case FailureCase::notAccepted:
      return "macOS would not open this app (it must be signed with a Developer ID and notarized). " +
             payload;
    case FailureCase::failed:
      return payload;
  }
  return "Refused";
}

std::optional<std::string> bundleID(const FileDescriptor& bundle) try {
  const FileDescriptor contents = openFolderIn(bundle, "Contents");
  if (!contents) return std::nullopt;
  const std::optional<std::string> bytes = readSmallFile(contents, "Info.plist", kMaximumInfoPlistSize);
  const std::optional<PropertyList> info = bytes ? parsePropertyList(*bytes) : std::nullopt;
  const PropertyList* value = info ? info->find("CFBundleIdentifier") : nullptr;
  const auto* text = value != nullptr ? value->as<std::string>() : nullptr;
  return text != nullptr ? std::optional(*text) : std::nullopt;
} catch (const std::system_error&) {
  return std::nullopt;
}

std::optional<std::string> bundleID(const FileDescriptor& folder, const std::string& name) {
  const FileDescriptor bundle = openFolderIn(folder, name);
  return bundle ? bundleID(bundle) : std::nullopt;
}

ReceivedApplication validate(const std::string& path, const std::string& home, uid_t peerUID) {
  const std::string app = standardizingPathByName(path);
  if (!liesInCompanyInbox(app, home)) throw Failure(FailureCase::outsideInbox, app);
  if (!app.ends_with(".app")) throw Failure(FailureCase::notAnApp, app);
  ReceivedItem received = hold(app, home);
  const std::optional<struct stat> status = received.status();
  if (!status) throw Failure(FailureCase::notAnApp, app);
  if (S_ISLNK(status->st_mode)) throw Failure(FailureCase::symlink, app);
  if (!S_ISDIR(status->st_mode)) throw Failure(FailureCase::notAnApp, app);
  if (status->st_uid != peerUID) throw Failure(FailureCase::notOwned, app);
  std::optional<std::string> identifier = bundleID(received.item.folder, received.item.name);
  if (!identifier) throw Failure(FailureCase::notAnApp, app);
  const std::string name = lastPathComponent(app);
  if (AppRemovalPolicy::deniedBasenames().contains(name) ||
      AppRemovalPolicy::isProtectedItem(received.item.folder, *status)) {
    throw Failure(FailureCase::isProtected, name);
  }
  return {std::move(received), *std::move(identifier)};
}

Destination destination(const std::string& name, const std::string& bundleID, const std::string& applications,
                        const FileDescriptor& folder) {
  const std::string target = appendingPathComponent(applications, name);
  struct stat status {};
  if (fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno != ENOENT) throwErrno("look at " + target);
    return {.path = target, .holdsOlderCopy = false};
  }
  if (AppRemovalPolicy::isProtectedItem(folder, status)) throw Failure(FailureCase::isProtected, name);
  if (ApplicationInstallPolicy::bundleID(folder, name) != bundleID) {
    throw Failure(FailureCase::otherApp, name);
  }
  return {.path = target, .holdsOlderCopy = true};
}

MaintenanceTask::Command copy(const std::string& from, const std::string& to) {
  return {"/usr/bin/ditto", {from, to}};
}

MaintenanceTask::Command assess(const std::string& path) {
  return {"/usr/sbin/spctl", {"--assess", "--type", "execute", path}};
}

}  // namespace molvane::ApplicationInstallPolicy
