#include "Platform/Log.hpp"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "Base/Mutex.hpp"

namespace molvane {
namespace {

constexpr std::chrono::milliseconds kPatience{100};
constexpr std::size_t kLongestLine = PIPE_BUF;
constexpr std::string_view kCut = "...";

std::string printable(std::string_view line) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string text;
  text.reserve(line.size() + 1);
  for (const char c : line) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte >= 0x7F || c == '\\') {
      text += {'\\', 'x', kHex[byte >> 4], kHex[byte & 0xF]};
    } else {
      text += c;
    }
  }
  if (text.size() >= kLongestLine) text.replace(kLongestLine - 1 - kCut.size(), std::string::npos, kCut);
  text += '\n';
  return text;
}

// Whether a line can be written without waiting. It waits for that, but not for long.
bool hasRoom(std::chrono::milliseconds patience) {
  pollfd log{STDERR_FILENO, POLLOUT, 0};
  int ready = 0;
  do {
    ready = ::poll(&log, 1, static_cast<int>(patience.count()));
  } while (ready < 0 && errno == EINTR);
  return ready != 0;
}

// False when there is no room.
bool put(const std::string& line, std::chrono::milliseconds patience) {
  if (!hasRoom(patience)) return false;
  ssize_t written = 0;
  do {
    written = ::write(STDERR_FILENO, line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  return written >= 0 || errno != EAGAIN;
}

// Held over a write: what poll has promised holds for one writer.
class LogStream {
 public:
  void add(const std::string& line) MOLVANE_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    const std::chrono::milliseconds patience = missing_ == 0 ? kPatience : std::chrono::milliseconds(0);
    if (missing_ > 0 && put(noticeOfMissing(), patience)) missing_ = 0;
    if (missing_ > 0 || !put(line, patience)) ++missing_;
  }

 private:
  [[nodiscard]] std::string noticeOfMissing() const MOLVANE_REQUIRES(mutex_) {
    return "MolvaneHelper: the log was not read; lines missing here: " + std::to_string(missing_) + "\n";
  }

  Mutex mutex_;
  std::size_t missing_ MOLVANE_GUARDED_BY(mutex_) = 0;  // lines, since the last one that was written
};

}  // namespace

void logLine(std::string_view line) {
  // Never destroyed: threads may log to the very end.
  static LogStream& stream = *new LogStream;  // NOLINT(cppcoreguidelines-owning-memory)
  stream.add(printable(line));
}

void fatalError(std::string_view why) {
  logLine("MolvaneHelper: fatal error: " + std::string(why));
  std::abort();
}

}  // namespace molvane
