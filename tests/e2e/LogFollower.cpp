#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "Harness.hpp"

namespace molvane::e2e {

LogFollower::LogFollower(const std::string& path)
    : path_(path),
      file_(open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0640)),
      watch_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  // Watched before the end is taken, so that no line falls between.
  if (!file_ || !watch_ || inotify_add_watch(watch_.get(), path.c_str(), IN_MODIFY) < 0 ||
      lseek(file_.get(), 0, SEEK_END) < 0) {
    throw std::system_error(errno, std::generic_category(), "follow " + path);
  }
}

std::string LogFollower::waitFor(std::string_view text, std::chrono::seconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  std::array<char, 4096> events{};
  while (true) {
    while (const auto line = nextLine()) {
      if (line->find(text) != std::string::npos) return *line;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd changed{watch_.get(), POLLIN, 0};
    if (left.count() <= 0 || poll(&changed, 1, static_cast<int>(left.count())) == 0) {
      throw std::runtime_error("no \"" + std::string(text) + "\" in " + path_);
    }
    while (read(watch_.get(), events.data(), events.size()) > 0) {
    }
  }
}

std::optional<std::string> LogFollower::nextLine() {
  std::array<char, 4096> piece{};
  ssize_t count = 0;
  while ((count = read(file_.get(), piece.data(), piece.size())) > 0) {
    pending_.append(piece.data(), static_cast<std::size_t>(count));
  }
  const auto end = pending_.find('\n');
  if (end == std::string::npos) return std::nullopt;
  std::string line = pending_.substr(0, end);
  pending_.erase(0, end + 1);
  return line;
}

}  // namespace molvane::e2e
