#include "Platform/ProcessDirectories.hpp"

#include <unistd.h>

#include "Platform/FileManager.hpp"
#include "Platform/Users.hpp"

namespace molvane {

std::string homeDirectory() { return homeFolder(geteuid()); }

std::string runtimeDirectory() {
  // The folder that the service manager makes for the helper; for anybody else the one of the login session.
  const uid_t user = geteuid();
  return user == 0 ? "/run/com.molvane.helper" : "/run/user/" + std::to_string(user) + "/com.molvane.helper";
}

std::string temporaryDirectory() { return runtimeDirectory() + "/tmp"; }

void ensurePrivateDirectories() {
  FileManager::ensurePrivateDirectory(runtimeDirectory());
  FileManager::ensurePrivateDirectory(temporaryDirectory());
}

}  // namespace molvane
