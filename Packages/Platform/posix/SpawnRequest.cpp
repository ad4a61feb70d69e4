#include "Platform/posix/SpawnRequest.hpp"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "Platform/posix/SpawnHost.hpp"

extern char** environ;

namespace molvane {

namespace {

void check(int code, const std::string& what) {
  if (code != 0) throw std::system_error(code, std::generic_category(), what);
}

bool hasNUL(const std::string& text) { return text.find('\0') != std::string::npos; }

sigset_t allChangeableSignals() {
  sigset_t signals;
  ::sigfillset(&signals);
  ::sigdelset(&signals, SIGKILL);
  ::sigdelset(&signals, SIGSTOP);
  return signals;
}

}  // namespace

SpawnRequest::SpawnRequest(const std::string& executable, const std::vector<std::string>& arguments)
    : executable_(executable), words_{executable} {
  if (!executable.starts_with('/')) check(EINVAL, "starting a tool without an absolute path");
  words_.insert(words_.end(), arguments.begin(), arguments.end());
  if (std::any_of(words_.begin(), words_.end(), hasNUL))
    check(EINVAL, "starting a tool with a NUL in a text");
  check(::posix_spawn_file_actions_init(&actions_), "preparing to start a tool");
  const int code = ::posix_spawnattr_init(&attributes_);
  if (code != 0) ::posix_spawn_file_actions_destroy(&actions_);
  check(code, "preparing to start a tool");
}

SpawnRequest::~SpawnRequest() {
  ::posix_spawnattr_destroy(&attributes_);
  ::posix_spawn_file_actions_destroy(&actions_);
}

void SpawnRequest::inheritInput() {
  // A close-on-exec descriptor 0 is none that the caller was started with: one of its own has taken the
  // number.
  const int flags = ::fcntl(STDIN_FILENO, F_GETFD);
  if (flags < 0 || (flags & FD_CLOEXEC) != 0) return setNullInput();
  check(::posix_spawn_file_actions_adddup2(&actions_, STDIN_FILENO, STDIN_FILENO), "passing on the input");
}

void SpawnRequest::setNullInput() {
  check(::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
        "setting up a tool's input");
}

void SpawnRequest::setInput(const FileDescriptor& readEnd) {
  check(::posix_spawn_file_actions_adddup2(&actions_, readEnd.get(), STDIN_FILENO),
        "setting up a tool's input");
}

void SpawnRequest::setOutput(const FileDescriptor& writeEnd) {
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    check(::posix_spawn_file_actions_adddup2(&actions_, writeEnd.get(), stream),
          "setting up a tool's output");
  }
}

void SpawnRequest::setNullOutput() {
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    check(::posix_spawn_file_actions_addopen(&actions_, stream, "/dev/null", O_WRONLY, 0),
          "setting up a tool's output");
  }
}

pid_t SpawnRequest::spawn() {
  const sigset_t defaults = allChangeableSignals();
  sigset_t none;
  ::sigemptyset(&none);
  check(::posix_spawnattr_setsigdefault(&attributes_, &defaults), "resetting a tool's signals");
  check(::posix_spawnattr_setsigmask(&attributes_, &none), "resetting a tool's signals");
  check(::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK),
        "resetting a tool's signals");
  closeOtherDescriptors(actions_, attributes_);

  std::vector<char*> argv;
  argv.reserve(words_.size() + 1);
  for (std::string& word : words_) argv.push_back(word.data());
  argv.push_back(nullptr);

  pid_t pid = -1;
  check(::posix_spawn(&pid, executable_.c_str(), &actions_, &attributes_, argv.data(), environ),
        "starting " + executable_);
  return pid;
}

}  // namespace molvane
