#include "Platform/FileCopy.hpp"

#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "Base/NSError.hpp"
#include "Platform/posix/KernelCopy.hpp"

namespace molvane {

namespace {

class Copying {
 public:
  Copying(const FileDescriptor& from, const FileDescriptor& to, std::uint64_t mostBytes)
      : from_(from.get()), to_(to.get()), mostBytes_(mostBytes) {}

  std::uint64_t run() {
    copyInKernel();
    // Also when the kernel has copied all of it: that there is no more is what a read says.
    const auto buffer = std::make_unique<char[]>(kCopyChunk);
    while (const std::size_t count = readInto(buffer.get())) {
      counted(count);
      write(std::string_view(buffer.get(), count));
    }
    return copied_;
  }

 private:
  void copyInKernel() {
    for (;;) {
      const ssize_t count = kernelCopy(from_, to_, kCopyChunk);
      if (count < 0) throwErrno("copy a file");
      if (count == 0) return;
      counted(static_cast<std::size_t>(count));
    }
  }

  std::size_t readInto(char* buffer) const {
    for (;;) {
      const ssize_t count = ::read(from_, buffer, kCopyChunk);
      if (count >= 0) return static_cast<std::size_t>(count);
      if (errno != EINTR) throwErrno("read a file");
    }
  }

  void write(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t count = ::write(to_, bytes.data(), bytes.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) throwErrno("write a file");
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  void counted(std::size_t count) {
    copied_ += count;
    if (copied_ > mostBytes_) {
      errno = EFBIG;
      throwErrno("copy a file");
    }
  }

  const int from_;
  const int to_;
  const std::uint64_t mostBytes_;
  std::uint64_t copied_ = 0;
};

}  // namespace

std::uint64_t copyToEnd(const FileDescriptor& from, const FileDescriptor& to, std::uint64_t mostBytes) {
  return Copying(from, to, mostBytes).run();
}

}  // namespace molvane
