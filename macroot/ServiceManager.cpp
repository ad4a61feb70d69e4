// The Mac-shaped root's service manager: holds the helper's socket and starts the helper when somebody
// connects, as launchd and systemd do. Its log, on standard output, has one line an event: "started PID",
// "exited PID status N", "exited PID signal N", "gave up".
//
//   launchd SOCKET GROUP RUNTIME-FOLDER HELPER-LOG HELPER
//
// Goes to the background as soon as the socket can be connected to; exit status 0 tells so.

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int kBacklog = 256;
constexpr rlim_t kOpenFiles = 4096;
constexpr int kFirstPassedDescriptor = 3;

// A helper that fails sooner than this was not started to any use.
constexpr auto kUsefulLife = 1s;
constexpr int kUselessStarts = 8;
constexpr auto kFirstPause = 50ms;

struct Service {
  std::string socket;
  std::string group;
  std::string runtimeFolder;
  std::string log;
  std::string helper;
};

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void check(int result, const std::string& what) {
  if (result < 0) fail(what);
}

int listenOn(const Service& service) {
  const group* owners = getgrnam(service.group.c_str());
  if (owners == nullptr) throw std::runtime_error("no group " + service.group);

  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (service.socket.size() >= sizeof address.sun_path) throw std::runtime_error("socket path too long");
  std::copy(service.socket.begin(), service.socket.end(), address.sun_path);

  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  check(fd, "socket");
  unlink(service.socket.c_str());
  // Made shut and opened when it has its owner, so that nobody gets in between.
  umask(0777);
  check(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind " + service.socket);
  umask(022);
  check(chown(service.socket.c_str(), 0, owners->gr_gid), "chown " + service.socket);
  check(chmod(service.socket.c_str(), 0660), "chmod " + service.socket);
  check(listen(fd, kBacklog), "listen");
  return fd;
}

// The helper's half after the fork. There is no way back from it.
[[noreturn]] void becomeHelper(const Service& service, int socket) {
  const int null = open("/dev/null", O_RDWR);
  const int log = open(service.log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0640);
  const bool ready = null >= 0 && log >= 0 && dup2(null, STDIN_FILENO) >= 0 &&
                     dup2(log, STDOUT_FILENO) >= 0 && dup2(log, STDERR_FILENO) >= 0 &&
                     dup2(socket, kFirstPassedDescriptor) >= 0 &&
                     fcntl(kFirstPassedDescriptor, F_SETFD, 0) == 0;
  if (!ready) _exit(EXIT_FAILURE);
  close_range(kFirstPassedDescriptor + 1, ~0U, 0);
  setsid();
  const rlimit openFiles{kOpenFiles, kOpenFiles};
  setrlimit(RLIMIT_NOFILE, &openFiles);

  std::string pid = "LISTEN_PID=" + std::to_string(getpid());
  std::string count = "LISTEN_FDS=1";
  std::string path = "PATH=/usr/bin:/bin:/usr/sbin:/sbin";
  const std::array<char*, 4> environment{pid.data(), count.data(), path.data(), nullptr};
  const std::array<char*, 2> arguments{const_cast<char*>(service.helper.c_str()), nullptr};
  execve(service.helper.c_str(), arguments.data(), environment.data());
  _exit(EXIT_FAILURE);
}

// Runs one helper to its end; true when its life was of use or somebody took it on purpose.
bool runHelper(const Service& service, int socket) {
  // Nothing of the last helper's is left for this one.
  std::filesystem::remove_all(service.runtimeFolder);
  check(mkdir(service.runtimeFolder.c_str(), 0700), "mkdir " + service.runtimeFolder);
  const auto start = Clock::now();
  const pid_t helper = fork();
  check(helper, "fork");
  if (helper == 0) becomeHelper(service, socket);
  std::cout << "started " << helper << std::endl;

  int status = 0;
  while (waitpid(helper, &status, 0) < 0) {
    if (errno != EINTR) fail("waitpid");
  }
  const bool bySignal = WIFSIGNALED(status);
  const int detail = bySignal ? WTERMSIG(status) : WEXITSTATUS(status);
  std::cout << "exited " << helper << (bySignal ? " signal " : " status ") << detail << std::endl;
  const bool asked = bySignal ? detail == SIGKILL || detail == SIGTERM : detail == 0;
  return asked || Clock::now() - start >= kUsefulLife;
}

void serve(const Service& service) {
  const int socket = listenOn(service);
  const pid_t background = fork();
  check(background, "fork");
  if (background > 0) _exit(EXIT_SUCCESS);
  setsid();
  int useless = 0;
  while (useless < kUselessStarts) {
    pollfd waiting{socket, POLLIN, 0};
    if (poll(&waiting, 1, -1) < 0) {
      if (errno == EINTR) continue;
      fail("poll");
    }
    useless = runHelper(service, socket) ? 0 : useless + 1;
    if (useless > 0) std::this_thread::sleep_for(kFirstPause * (1 << useless));
  }
  std::cout << "gave up" << std::endl;
  unlink(service.socket.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    std::cerr << "usage: launchd SOCKET GROUP RUNTIME-FOLDER HELPER-LOG HELPER\n";
    return EXIT_FAILURE;
  }
  try {
    serve({argv[1], argv[2], argv[3], argv[4], argv[5]});
  } catch (const std::exception& problem) {
    std::cerr << "launchd: " << problem.what() << '\n';
  }
  return EXIT_FAILURE;
}
