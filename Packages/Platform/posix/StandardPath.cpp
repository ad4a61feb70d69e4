#include "Platform/StandardPath.hpp"

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <optional>

#include "Base/PathText.hpp"
#include "Platform/Users.hpp"

namespace molvane {

namespace {

constexpr std::string_view kPrivatePrefix = "/private";

bool canNameAFile(std::string_view path) noexcept {
  return path.size() < PATH_MAX && path.find('\0') == std::string_view::npos;
}

bool exists(const std::string& path) {
  struct stat status {};
  return canNameAFile(path) && ::stat(path.c_str(), &status) == 0;
}

std::optional<std::string> homeOfUser(const std::string& name) {
  const std::optional<User> user = name.empty() ? userWithID(::geteuid()) : userNamed(name);
  return user ? std::optional(user->home) : std::nullopt;
}

std::string expandingTilde(std::string_view path) {
  if (path.empty() || path.front() != '~') return std::string(path);
  const std::size_t nameEnd = std::min(path.find('/'), path.size());
  const std::optional<std::string> home = homeOfUser(std::string(path.substr(1, nameEnd - 1)));
  if (!home || !isAbsolutePath(*home)) return std::string(path);
  return *home + std::string(path.substr(nameEnd));
}

/// Goes up from `folder`, which is absolute and in standard form.
void goUpByName(std::string& folder) { folder.resize(std::max<std::size_t>(folder.rfind('/'), 1)); }

void goUp(std::string& folder) {
  std::array<char, PATH_MAX> real{};
  if (canNameAFile(folder) && ::realpath(folder.c_str(), real.data()) != nullptr) folder = real.data();
  goUpByName(folder);
}

/// Calls `use` with each component of `path` but the single dots.
template <typename Use>
void forEachComponent(std::string_view path, Use use) {
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view component = path.substr(0, end);
    if (!component.empty() && component != ".") use(component);
    path.remove_prefix(std::min(end + 1, path.size()));
  }
}

enum class ParentReferences { followLinks, byName };

std::string standardizingAbsolute(std::string_view path, ParentReferences parents) {
  // What is too long to be a file is so as a whole: otherwise a long enough row of ".." would cost as many
  // lookups.
  const bool asksFileSystem = parents == ParentReferences::followLinks && canNameAFile(path);
  std::string result = "/";
  forEachComponent(path, [&](std::string_view component) {
    if (component == "..") {
      asksFileSystem ? goUp(result) : goUpByName(result);
    } else {
      if (result.back() != '/') result += '/';
      result += component;
    }
  });
  return result;
}

std::string standardizingRelative(std::string_view path) {
  std::string result;
  forEachComponent(path, [&](std::string_view component) {
    if (!result.empty()) result += '/';
    result += component;
  });
  if (result.empty() && !path.empty()) return ".";
  // "./~" names a file; "~" would name the home folder.
  if (!result.empty() && result.front() == '~' && path.front() != '~') return "./" + result;
  return result;
}

std::string withoutPrivatePrefix(std::string path) {
  while (path.size() > kPrivatePrefix.size() && path.compare(0, kPrivatePrefix.size(), kPrivatePrefix) == 0 &&
         path[kPrivatePrefix.size()] == '/') {
    std::string rest = path.substr(kPrivatePrefix.size());
    if (!exists(rest)) break;
    path = std::move(rest);
  }
  return path;
}

std::string standardizing(std::string_view path, ParentReferences parents) {
  const std::string expanded = expandingTilde(path);
  if (!isAbsolutePath(expanded)) return standardizingRelative(expanded);
  return withoutPrivatePrefix(standardizingAbsolute(expanded, parents));
}

}  // namespace

std::string standardizingPath(std::string_view path) {
  return standardizing(path, ParentReferences::followLinks);
}

std::string standardizingPathByName(std::string_view path) {
  return standardizing(path, ParentReferences::byName);
}

}  // namespace molvane
