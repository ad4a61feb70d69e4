#include "Harness.hpp"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace molvane::e2e {

namespace {

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

FileDescriptor owned(int fd, const char* what) {
  if (fd < 0) fail(what);
  return FileDescriptor(fd);
}

// Files in memory instead of pipes: a program can write as much as it likes with nobody reading.
FileDescriptor outputFile() { return owned(memfd_create("output", MFD_CLOEXEC), "memfd_create"); }

std::string contentOf(const FileDescriptor& file) {
  std::string content;
  std::array<char, 65536> piece{};
  ssize_t count = 0;
  while ((count = pread(file.get(), piece.data(), piece.size(), static_cast<off_t>(content.size()))) > 0) {
    content.append(piece.data(), static_cast<std::size_t>(count));
  }
  return content;
}

[[noreturn]] void become(std::vector<char*> arguments, Person who, int out, int err) {
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  const bool ready = null >= 0 && dup2(null, STDIN_FILENO) >= 0 && dup2(out, STDOUT_FILENO) >= 0 &&
                     dup2(err, STDERR_FILENO) >= 0 && setgroups(0, nullptr) == 0 &&
                     setresgid(who.gid, who.gid, who.gid) == 0 && setresuid(who.uid, who.uid, who.uid) == 0;
  if (ready) execv(arguments[0], arguments.data());
  _exit(127);
}

}  // namespace

void PrintTo(const Outcome& outcome, std::ostream* stream) {
  *stream << "status " << outcome.status << ", out \"" << outcome.out << "\", err \"" << outcome.err << '"';
}

Program::Program(const std::vector<std::string>& arguments, Person who)
    : out_(outputFile()), err_(outputFile()) {
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (const auto& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);

  // Its writing end closes by itself when the program takes the child's place.
  std::array<int, 2> begun{};
  if (pipe2(begun.data(), O_CLOEXEC) != 0) fail("pipe2");
  const FileDescriptor reader(begun[0]);
  FileDescriptor writer(begun[1]);
  pid_ = fork();
  if (pid_ < 0) fail("fork");
  if (pid_ == 0) become(pointers, who, out_.get(), err_.get());
  writer.reset();
  char nothing = 0;
  while (read(reader.get(), &nothing, 1) < 0 && errno == EINTR) {
  }
  handle_ = owned(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)), "pidfd_open");
}

Program::~Program() {
  if (pid_ < 0) return;
  kill(SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void Program::kill(int signal) const { ::kill(pid_, signal); }

Outcome Program::wait() {
  pollfd ended{handle_.get(), POLLIN, 0};
  const auto limit = std::chrono::milliseconds(kPatience).count();
  if (poll(&ended, 1, static_cast<int>(limit)) != 1) throw std::runtime_error("a program does not end");
  int status = 0;
  if (waitpid(pid_, &status, 0) < 0) fail("waitpid");
  pid_ = -1;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), contentOf(out_), contentOf(err_)};
}

Outcome run(const std::vector<std::string>& arguments, Person who) { return Program(arguments, who).wait(); }

Outcome molvanectl(std::vector<std::string> arguments, Person who) {
  arguments.insert(arguments.begin(), kClient);
  return run(arguments, who);
}

std::optional<pid_t> helperProcess() {
  std::istringstream log(readFile(kManagerLog));
  std::optional<pid_t> running;
  for (std::string line; std::getline(log, line);) {
    std::istringstream words(line);
    std::string event;
    pid_t process = 0;
    words >> event >> process;
    if (event == "started") running = process;
    if (event == "exited") running.reset();
  }
  return running;
}

void endHelper() {
  LogFollower manager(kManagerLog);
  const auto helper = helperProcess();
  if (!helper) return;
  ::kill(*helper, SIGKILL);
  manager.waitFor("exited " + std::to_string(*helper));
}

bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

std::size_t openDescriptors(pid_t process) {
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(process) + "/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

void writeFile(const std::filesystem::path& path, std::string_view content) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(file), {}};
}

CacheFolder::CacheFolder(const std::string& name) : path_(kCaches / name) {
  std::filesystem::remove_all(path_);
  std::filesystem::create_directories(path_);
}

CacheFolder::~CacheFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ToolBehaviour::ToolBehaviour(std::string_view tool, std::string_view directives)
    : path_(std::filesystem::path("/etc/macroot/behaviour") / tool) {
  writeFile(path_, directives);
}

ToolBehaviour::~ToolBehaviour() {
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
}

}  // namespace molvane::e2e
