#pragma once

#include <utility>

namespace molvane {

/// Owns an open file descriptor and closes it when it goes. Every descriptor that the project opens is opened
/// close-on-exec.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { reset(); }

  /// The descriptor, still owned here; -1 when there is none.
  [[nodiscard]] int get() const noexcept { return fd_; }
  [[nodiscard]] explicit operator bool() const noexcept { return fd_ >= 0; }

  /// Gives the descriptor up without closing it.
  [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }

  /// Closes what is owned and takes `fd` in its place. The result of close is not looked at: whoever needs to
  /// know that data has reached the disk syncs first.
  void reset(int fd = -1) noexcept;

 private:
  int fd_ = -1;
};

}  // namespace molvane
