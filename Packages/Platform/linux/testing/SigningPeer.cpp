// A process at the other end of a socket, for tests of who it is: SigningPeer SOCKET-PATH | SigningPeer --fd
// NUMBER. It says "ready", then does what it is told, one command at a time, until the other side closes:
//   exec PATH   runs another copy of this program on the same connection
//   hand-on     lets a child go on with the connection and exits itself
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

int connectTo(const char* path) {
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  if (fd < 0 || connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) std::_Exit(1);
  return fd;
}

void sayReady(int fd) {
  if (write(fd, "ready", 5) != 5) std::_Exit(1);
}

void obey(int fd, const std::string& command) {
  if (command.rfind("exec ", 0) == 0) {
    const std::string path = command.substr(5);
    execl(path.c_str(), path.c_str(), "--fd", std::to_string(fd).c_str(), nullptr);
    std::_Exit(1);
  }
  if (command == "hand-on") {
    const pid_t child = fork();
    if (child != 0) std::_Exit(child > 0 ? 0 : 1);
    sayReady(fd);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 1;
  const int fd = argc == 3 ? std::stoi(argv[2]) : connectTo(argv[1]);
  sayReady(fd);
  std::array<char, 4096> command{};
  while (true) {
    const ssize_t size = read(fd, command.data(), command.size());
    // At once: a leak checker at exit would start a helper that keeps the executable busy.
    if (size <= 0) std::_Exit(0);
    obey(fd, std::string(command.data(), static_cast<std::size_t>(size)));
  }
}
