// The Mac's script(1), as far as the helper uses it: runs a command on a terminal of its own, copies what is
// typed at standard input to it and what it shows to standard output, and ends as the command does.
//
//   script [-q] FILE COMMAND [ARGUMENT...]
//
// FILE gets a transcript; -q leaves out the two lines about it.

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

// More than a terminal holds.
constexpr int kMostReadsAfterTheEnd = 64;

struct Session {
  int terminal = -1;
  int transcript = -1;
  pid_t command = -1;
};

[[noreturn]] void fail(const std::string& what) {
  (void)std::fprintf(stderr, "script: %s: %s\n", what.c_str(), std::strerror(errno));
  std::exit(EXIT_FAILURE);
}

void writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

/// False at the end of the input.
bool copyTyped(const Session& session) {
  std::array<char, 4096> buffer;
  const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
  if (count < 0) return errno == EINTR;
  if (count > 0) {
    writeAll(session.terminal, {buffer.data(), static_cast<std::size_t>(count)});
    return true;
  }
  // The command shall find the end of its input too, which on a terminal is a character.
  termios settings{};
  if (tcgetattr(session.terminal, &settings) == 0 && (settings.c_lflag & ICANON) != 0) {
    writeAll(session.terminal, {reinterpret_cast<const char*>(&settings.c_cc[VEOF]), 1});
  }
  return false;
}

/// False when nobody has the terminal open any more.
bool copyShown(const Session& session) {
  std::array<char, 4096> buffer;
  const ssize_t count = read(session.terminal, buffer.data(), buffer.size());
  if (count < 0 && errno == EINTR) return true;
  if (count <= 0) return false;
  const std::string_view shown(buffer.data(), static_cast<std::size_t>(count));
  writeAll(STDOUT_FILENO, shown);
  writeAll(session.transcript, shown);
  return true;
}

// A Mac takes the terminal from everybody when the command that leads its session ends. Here processes that
// the command has left behind keep it, and so the command's end has to be looked for as well.
void copyUntilTheCommandEnds(const Session& session) {
  const int ended = static_cast<int>(syscall(SYS_pidfd_open, session.command, 0));
  if (ended < 0) fail("pidfd_open");
  std::array<pollfd, 3> polled{
      {{session.terminal, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}, {ended, POLLIN, 0}}};
  bool hasEnded = false;
  int rest = 0;
  while (true) {
    if (poll(polled.data(), polled.size(), -1) < 0) {
      if (errno == EINTR) continue;
      fail("poll");
    }
    if (polled[1].revents != 0 && !copyTyped(session)) polled[1].fd = -1;
    // What it showed last may have come after this poll looked at the terminal; the next one sees it.
    if (hasEnded && (polled[0].revents == 0 || ++rest > kMostReadsAfterTheEnd)) return;
    hasEnded = polled[2].revents != 0;
    if (polled[0].revents != 0 && !copyShown(session)) return;
  }
}

int endOf(pid_t command) {
  int status = 0;
  while (waitpid(command, &status, 0) < 0) {
    if (errno != EINTR) fail("wait");
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
}

}  // namespace

int main(int argc, char** argv) {
  int option = 0;
  bool quiet = false;
  while ((option = getopt(argc, argv, "+q")) != -1) {
    if (option != 'q') return EXIT_FAILURE;
    quiet = true;
  }
  if (argc - optind < 2) {
    (void)std::fputs("usage: script [-q] file command [argument ...]\n", stderr);
    return EXIT_FAILURE;
  }
  const char* const file = argv[optind];
  char** const command = argv + optind + 1;

  Session session;
  session.transcript = open(file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (session.transcript < 0) fail(file);
  if (!quiet) writeAll(STDOUT_FILENO, std::string("Script started, output file is ") + file + "\n");
  session.command = forkpty(&session.terminal, nullptr, nullptr, nullptr);
  if (session.command < 0) fail("forkpty");
  if (session.command == 0) {
    std::signal(SIGPIPE, SIG_DFL);
    execvp(command[0], command);
    fail(command[0]);
  }
  copyUntilTheCommandEnds(session);
  const int status = endOf(session.command);
  if (!quiet) writeAll(STDOUT_FILENO, std::string("\nScript done, output file is ") + file + "\n");
  return status;
}
