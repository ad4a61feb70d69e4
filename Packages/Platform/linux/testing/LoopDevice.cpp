#include "Platform/linux/testing/LoopDevice.hpp"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>

#include <cerrno>

#include "Base/NSError.hpp"

namespace molvane::testing {
namespace {

// Somebody else may take a free device before we do.
constexpr int kAttempts = 20;

FileDescriptor opened(const std::string& path, int flags) {
  FileDescriptor file(::open(path.c_str(), flags | O_CLOEXEC));
  if (!file) throwErrno("open " + path);
  return file;
}

}  // namespace

LoopDevice::LoopDevice(const std::string& file) : LoopDevice(file, Options()) {}

LoopDevice::LoopDevice(const std::string& file, Options options) {
  const int access = options.isReadOnly ? O_RDONLY : O_RDWR;
  const FileDescriptor control = opened("/dev/loop-control", O_RDWR);
  const FileDescriptor backing = opened(file, access);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const int number = ::ioctl(control.get(), LOOP_CTL_GET_FREE);
    if (number < 0) throwErrno("a free loop device");
    path_ = "/dev/loop" + std::to_string(number);
    device_ = opened(path_, access);
    loop_config config{};
    config.fd = static_cast<unsigned>(backing.get());
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    if (options.isDirect) config.info.lo_flags |= LO_FLAGS_DIRECT_IO;
    if (options.isReadOnly) config.info.lo_flags |= LO_FLAGS_READ_ONLY;
    if (::ioctl(device_.get(), LOOP_CONFIGURE, &config) == 0) return;
    if (errno != EBUSY) throwErrno("loop device over " + file);
  }
  throwErrno("no loop device stays free");
}

}  // namespace molvane::testing
