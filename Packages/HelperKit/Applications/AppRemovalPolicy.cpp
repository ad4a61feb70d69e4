#include "HelperKit/Applications/AppRemovalPolicy.hpp"

#include <algorithm>
#include <optional>
#include <string_view>

#include "Base/NSError.hpp"
#include "Base/PathText.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/FileManager.hpp"
#include "Platform/StandardPath.hpp"

namespace molvane::AppRemovalPolicy {

namespace {

std::optional<std::string_view> restBelow(const std::string& folder, std::string_view path) {
  const std::string prefix = folder + "/";
  if (!path.starts_with(prefix)) return std::nullopt;
  return path.substr(prefix.size());
}

}  // namespace

std::string describe(FailureCase which, const std::string& path) {
  switch (which) {
    case FailureCase::notAnApp:
      return "Not an application bundle: " + path;
    case FailureCase::outsideRoots:
      return "Only apps in /Applications or ~/Applications can be removed: " + path;
    case FailureCase::symlink:
      return "Refusing to follow a symlink: " + path;
    case FailureCase::denied:
      return "Refusing to remove a protected app: " + path;
    case FailureCase::missing:
      return "Not found: " + path;
    case FailureCase::tooDeep:
      return "Only top-level apps (or one folder deep) can be removed: " + path;
  }
  return "Refused";
}

const std::set<std::string>& deniedBasenames() {
  static const std::set<std::string> names = {"Safari.app",          "Mail.app",
                                              "Messages.app",        "FaceTime.app",
                                              "System Settings.app", "System Preferences.app",
                                              "Finder.app",          "Terminal.app",
                                              "Xcode.app",           "Molvane.app",
                                              "MacMolvane.app"};
  return names;
}

bool isProtectedItem(const FileDescriptor& folder, const struct stat& item) {
  const std::set<std::string>& names = deniedBasenames();
  return std::any_of(names.begin(), names.end(),
                     [&](const std::string& name) { return isSameItem(folder, name, item); });
}

bool isUtilities(const FileDescriptor& folder) {
  struct stat status {};
  if (fstat(folder.get(), &status) != 0) throwErrno("look at a folder of applications");
  return isSameItem(folder, "../Utilities", status);
}

std::string applicationsFolder() { return "/Applications"; }

std::string applicationsFolder(const std::string& home) {
  return appendingPathComponent(home, "Applications");
}

std::string validate(const std::string& path, const std::string& home) {
  std::string app = standardizingPathByName(path);
  if (!app.ends_with(".app") || app.find("/../") != std::string::npos) {
    throw Failure(FailureCase::notAnApp, path);
  }
  std::optional<std::string_view> rest = restBelow(applicationsFolder(), app);
  if (!rest) rest = restBelow(applicationsFolder(home), app);
  if (!rest) throw Failure(FailureCase::outsideRoots, app);
  // A standardised path has no empty components, so the slashes tell their number.
  if (rest->empty() || std::count(rest->begin(), rest->end(), '/') > 1) {
    throw Failure(FailureCase::tooDeep, app);
  }
  if (rest->starts_with("Utilities/")) throw Failure(FailureCase::denied, app);
  if (deniedBasenames().contains(lastPathComponent(app))) throw Failure(FailureCase::denied, app);
  if (!FileManager::isDirectory(app)) throw Failure(FailureCase::missing, app);
  const std::optional<FileAttributes> attributes = FileManager::findAttributes(app);
  if (attributes && attributes->type == FileType::symbolicLink) throw Failure(FailureCase::symlink, app);
  if (app.starts_with("/System/")) throw Failure(FailureCase::denied, app);
  return app;
}

}  // namespace molvane::AppRemovalPolicy
