#include "Platform/Users.hpp"

#include <pwd.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <vector>

namespace molvane {
namespace {

constexpr std::size_t kLargestEntry = std::size_t{1} << 20U;

std::string textOf(const char* text) { return text == nullptr ? "" : text; }

// Calls one of the reentrant look-ups, `lookUp(entry, buffer, size, found)`, with a buffer that is large
// enough.
template <typename LookUp>
std::optional<User> find(LookUp lookUp) {
  for (std::vector<char> buffer(4096); buffer.size() <= kLargestEntry; buffer.resize(buffer.size() * 2)) {
    passwd entry{};
    passwd* found = nullptr;
    const int error = lookUp(&entry, buffer.data(), buffer.size(), &found);
    if (error == ERANGE) continue;
    if (error != 0 || found == nullptr) return std::nullopt;
    return User{textOf(found->pw_name), found->pw_uid, found->pw_gid, textOf(found->pw_dir)};
  }
  return std::nullopt;
}

}  // namespace

std::optional<User> userWithID(uid_t uid) {
  return find([uid](auto... arguments) { return getpwuid_r(uid, arguments...); });
}

std::optional<User> userNamed(const std::string& name) {
  if (name.find('\0') != std::string::npos) return std::nullopt;
  return find([&name](auto... arguments) { return getpwnam_r(name.c_str(), arguments...); });
}

std::optional<User> consoleUser() {
  struct stat console {};
  // Root owns it while the login window shows.
  if (stat("/dev/console", &console) != 0 || console.st_uid == 0) return std::nullopt;
  return userWithID(console.st_uid);
}

std::string homeFolder(uid_t uid) {
  const std::optional<User> user = userWithID(uid);
  return user && !user->home.empty() ? user->home : "/nonexistent";
}

}  // namespace molvane
