#include "Platform/RawDevice.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <system_error>
#include <utility>

#include "Base/NSError.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/PageBuffer.hpp"
#include "Platform/SafeFile.hpp"
#include "Platform/linux/DiskClaim.hpp"

namespace molvane {
namespace {

using Access = RawDeviceRequest::Access;

constexpr std::size_t kLargestBlock = 65536;

int openFlags(Access access) {
  switch (access) {
    case Access::read:
      return O_RDONLY;
    case Access::write:
      return O_WRONLY;
    case Access::readWrite:
      return O_RDWR;
  }
  return O_RDONLY;
}

IoResult result(ssize_t count) {
  return count < 0 ? IoResult{0, errno} : IoResult{static_cast<std::size_t>(count), 0};
}

bool saysGone(int error) { return error == ENODEV || error == ENXIO || error == ENOMEDIUM; }

// Names and nodes are not kept by the same hands: a node that was left behind may lead to another disk. And a
// disk that is pulled out takes its name with it.
bool hasName(dev_t number, const std::string& diskName) {
  constexpr std::size_t kPage = 4096;  // what the kernel says the file may hold
  if (diskName.empty()) return true;
  const std::string expected = std::to_string(major(number)) + ":" + std::to_string(minor(number)) + "\n";
  return readSmallFile("/sys/class/block/" + diskName + "/dev", kPage) == expected;
}

class LinuxRawDevice final : public RawDevice {
 public:
  LinuxRawDevice(const RawDeviceRequest& request, dev_t number, FileDescriptor device, std::size_t blockSize,
                 bool isCached, std::unique_ptr<DiskClaim> claim)
      : diskName_(request.diskName),
        size_(static_cast<std::uint64_t>(request.sizeBytes)),
        number_(number),
        device_(std::move(device)),
        blockSize_(blockSize),
        isCached_(isCached),
        oneBlock_(blockSize),
        claim_(std::move(claim)) {}

  IoResult readAt(std::span<std::byte> bytes, std::int64_t offset) override {
    const IoResult read =
        isAligned(bytes, offset) ? plainRead(bytes, offset) : readWithinBlock(bytes, offset);
    if (read.count > 0 || bytes.empty()) return read;
    const int absence = saysGone(read.error) ? read.error : whyGone();
    return absence == 0 ? read : IoResult{0, absence, true};
  }

  IoResult writeAt(std::span<const std::byte> bytes, std::int64_t offset) override {
    ssize_t count = 0;
    do {
      count = ::pwrite(device_.get(), bytes.data(), bytes.size(), offset);
    } while (count < 0 && errno == EINTR);
    return result(count);
  }

  int sync() override {
    if (::fsync(device_.get()) != 0) return errno;
    // Where the device could not be opened past the cache, what is read back must still not come from it.
    if (isCached_ && ::ioctl(device_.get(), BLKFLSBUF, 0) != 0) return errno;
    return 0;
  }

 private:
  // 0 while the disk is there. Its size becomes 0 when it or its medium is taken away.
  [[nodiscard]] int whyGone() const {
    try {
      if (!hasName(number_, diskName_)) return ENODEV;
    } catch (const std::system_error& error) {
      // No memory or no descriptor to look with: then the device's own answer stands.
      if (saysGone(error.code().value())) return error.code().value();
    }
    std::uint64_t size = 0;
    if (::ioctl(device_.get(), BLKGETSIZE64, &size) != 0) return saysGone(errno) ? errno : 0;
    return size == size_ ? 0 : ENOMEDIUM;
  }

  [[nodiscard]] bool isAligned(std::span<const std::byte> bytes, std::int64_t offset) const {
    return bytes.size() % blockSize_ == 0 && static_cast<std::uint64_t>(offset) % blockSize_ == 0 &&
           reinterpret_cast<std::uintptr_t>(bytes.data()) % blockSize_ == 0;
  }

  IoResult plainRead(std::span<std::byte> bytes, std::int64_t offset) const {
    ssize_t count = 0;
    do {
      count = ::pread(device_.get(), bytes.data(), bytes.size(), offset);
    } while (count < 0 && errno == EINTR);
    return result(count);
  }

  // Of the block that holds `offset`, or of the whole blocks that follow when only the end is ragged.
  IoResult readWithinBlock(std::span<std::byte> bytes, std::int64_t offset) {
    const std::size_t whole = bytes.size() / blockSize_ * blockSize_;
    if (whole != 0 && isAligned(bytes.first(whole), offset)) return plainRead(bytes.first(whole), offset);
    const std::size_t lead = static_cast<std::uint64_t>(offset) % blockSize_;
    const IoResult block = plainRead(oneBlock_.bytes(), offset - static_cast<std::int64_t>(lead));
    if (block.error != 0 || block.count <= lead) return {0, block.error};
    const std::size_t count = std::min(bytes.size(), block.count - lead);
    std::memcpy(bytes.data(), oneBlock_.bytes().data() + lead, count);
    return {count, 0};
  }

  const std::string diskName_;
  const std::uint64_t size_;
  const dev_t number_;
  const FileDescriptor device_;
  const std::size_t blockSize_;
  const bool isCached_;
  const PageBuffer oneBlock_;
  // Given up before the device is closed: closing it makes the desktop look at the disk again, and then the
  // new content may be shown.
  const std::unique_ptr<DiskClaim> claim_;
};

struct OpenedNode {
  FileDescriptor descriptor;
  bool isCached = false;
};

OpenedNode openNode(const std::string& path, int flags) {
  // Not blocking: a drive without a medium, or what is no disk at all, answers at once.
  flags |= O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  FileDescriptor direct(::open(path.c_str(), flags | O_DIRECT));
  if (direct) return {std::move(direct), false};
  if (errno != EINVAL) throwErrno("open " + path);
  FileDescriptor cached(::open(path.c_str(), flags));
  if (!cached) throwErrno("open " + path);
  return {std::move(cached), true};
}

[[noreturn]] void refuse(int error, const std::string& path) {
  throw std::system_error(error, std::generic_category(), path);
}

dev_t diskNumber(const FileDescriptor& node, const std::string& path) {
  struct stat status {};
  if (::fstat(node.get(), &status) != 0) throwErrno("fstat " + path);
  if (!S_ISBLK(status.st_mode)) refuse(ENOTBLK, path);
  return status.st_rdev;
}

}  // namespace

std::unique_ptr<RawDevice> openRawDevice(const RawDeviceRequest& request) {
  const std::string& path = request.path;
  // Opening what is no disk may already set something off, so the node is looked at first.
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) throwErrno("stat " + path);
  if (!S_ISBLK(status.st_mode)) refuse(ENOTBLK, path);

  std::unique_ptr<DiskClaim> claim;
  if (request.access != Access::read) {
    claim = std::make_unique<DiskClaim>(path, status.st_rdev, request.diskName);
  }
  OpenedNode node = openNode(path, openFlags(request.access));
  if (diskNumber(node.descriptor, path) != status.st_rdev) refuse(ENODEV, path);
  if (!hasName(status.st_rdev, request.diskName)) refuse(ENODEV, path);

  std::uint64_t size = 0;
  int blockSize = 0;
  if (::ioctl(node.descriptor.get(), BLKGETSIZE64, &size) != 0) throwErrno("size of " + path);
  if (::ioctl(node.descriptor.get(), BLKSSZGET, &blockSize) != 0) throwErrno("block size of " + path);
  if (size != static_cast<std::uint64_t>(request.sizeBytes)) refuse(ENODEV, path);
  if (blockSize <= 0 || static_cast<std::size_t>(blockSize) > kLargestBlock) refuse(EINVAL, path);
  return std::make_unique<LinuxRawDevice>(request, status.st_rdev, std::move(node.descriptor),
                                          static_cast<std::size_t>(blockSize), node.isCached,
                                          std::move(claim));
}

}  // namespace molvane
