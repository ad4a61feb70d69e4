#include "Platform/testing/ToolFolder.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "Base/NSError.hpp"

namespace molvane::testing {

namespace {

constexpr int kDescriptorsLookedAt = 1024;
constexpr int kOutOfTheWay = 200;

}  // namespace

std::string ToolFolder::path(std::string_view name) const { return folder_.path() + "/" + std::string(name); }

std::string ToolFolder::addFile(std::string_view name, std::string_view bytes, mode_t mode) const {
  std::string file = path(name);
  std::ofstream(file, std::ios::binary) << bytes;
  if (::chmod(file.c_str(), mode) != 0) throwErrno("writing " + file);
  return file;
}

std::string ToolFolder::addScript(std::string_view name, std::string_view commands) const {
  return addFile(name, "#!/bin/sh\n" + std::string(commands), 0755);
}

int openDescriptorCount() {
  int count = 0;
  for (int fd = 0; fd < kDescriptorsLookedAt; ++fd) {
    if (::fcntl(fd, F_GETFD) >= 0) ++count;
  }
  return count;
}

bool hasUnreapedChildren() { return !(::waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD); }

StandardStreamsKept::StandardStreamsKept() {
  for (int fd = 0; fd < 3; ++fd) kept_[fd] = ::fcntl(fd, F_DUPFD_CLOEXEC, kOutOfTheWay);
}

StandardStreamsKept::~StandardStreamsKept() {
  for (int fd = 0; fd < 3; ++fd) {
    if (kept_[fd] < 0) {
      ::close(fd);
    } else {
      ::dup2(kept_[fd], fd);
      ::close(kept_[fd]);
    }
  }
}

}  // namespace molvane::testing
