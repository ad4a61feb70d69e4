#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <optional>
#include <utility>

#include "Base/NSError.hpp"
#include "Base/PathText.hpp"
#include "HelperKit/Devices/ChunkRescue.hpp"
#include "HelperKit/Devices/ChunkStream.hpp"
#include "HelperKit/Devices/DeviceJobWork.hpp"
#include "HelperKit/Devices/DevicePolicy.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/StreamedFile.hpp"
#include "Platform/UserRights.hpp"

namespace molvane {
namespace {

using Phase = DeviceJobStatus::Phase;

// How much of the image may stand in the page cache, still to be written out or to be dropped.
constexpr std::int64_t kCached = std::int64_t{16} * 1024 * 1024;

int errnoOf(WalkErrorCase which) {
  switch (which) {
    case WalkErrorCase::missing:
      return ENOENT;
    case WalkErrorCase::link:
      return ELOOP;
    case WalkErrorCase::notDirectory:
      return ENOTDIR;
  }
  return EIO;
}

// The image file and the folder that holds it.
class NewImage {
 public:
  // Throws std::system_error, EACCES for a folder that the person may not write to or not even reach.
  NewImage(const std::string& path, std::uint32_t person) : item_(hold(path)) {
    withRightsOf(person, [&] {
      requireReachable(deletingLastPathComponent(path));
      constexpr int kCreate = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
      file_ = FileDescriptor(::openat(item_.folder.get(), item_.name.c_str(), kCreate, 0644));
      if (!file_) throwErrno("create " + path);
    });
  }

  // Best effort, as on a volume without owners.
  void giveTo(std::uint32_t owner) {
    if (::fchown(file_.get(), owner, static_cast<gid_t>(-1)) != 0) return;
  }

  // 0 or an errno value.
  int append(std::span<const std::byte> bytes) {
    const std::int64_t begin = size_;
    while (!bytes.empty()) {
      const ssize_t count = ::write(file_.get(), bytes.data(), bytes.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return errno;
      if (count == 0) return EIO;
      bytes = bytes.subspan(static_cast<std::size_t>(count));
      size_ += count;
    }
    beginWritingOut(file_, begin, size_ - begin);
    if (size_ - forgotten_ > kCached) {
      const std::int64_t length = size_ - forgotten_ - kCached;
      writeOutAndForget(file_, forgotten_, length);
      forgotten_ += length;
    }
    return 0;
  }

  // 0 or an errno value.
  int sync() { return ::fsync(file_.get()) == 0 ? 0 : errno; }

  // Unless something else has the name by now.
  void remove() {
    struct stat ours {};
    struct stat named {};
    if (::fstat(file_.get(), &ours) != 0) return;
    if (::fstatat(item_.folder.get(), item_.name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0) return;
    if (ours.st_dev != named.st_dev || ours.st_ino != named.st_ino) return;
    ::unlinkat(item_.folder.get(), item_.name.c_str(), 0);
  }

 private:
  static HeldItem hold(const std::string& path) {
    try {
      return walkToItem(imageDestinationPlace(path), path);
    } catch (const WalkError& error) {
      throw std::system_error(errnoOf(error.which()), std::generic_category(), path);
    }
  }

  // The folder that is held must be the one to which the path leads the calling thread.
  void requireReachable(const std::string& folder) const {
    struct stat held {};
    struct stat reached {};
    if (::fstat(item_.folder.get(), &held) != 0 || ::stat((folder + "/.").c_str(), &reached) != 0) {
      throwErrno("reach " + folder);
    }
    if (held.st_dev != reached.st_dev || held.st_ino != reached.st_ino) {
      throw std::system_error(EACCES, std::generic_category(), folder);
    }
  }

  HeldItem item_;
  FileDescriptor file_;
  std::int64_t size_ = 0;
  std::int64_t forgotten_ = 0;
};

// Reads the disk chunk by chunk.
class DiskReader {
 public:
  // `isOver` says that nobody waits for more.
  DiskReader(const DeviceJob& job, RawDevice& device, const DeviceFacts& facts,
             const std::atomic<bool>& isOver)
      : job_(job),
        device_(device),
        isOver_(isOver),
        total_(facts.sizeBytes),
        blockSize_(blockSizeOf(facts)),
        chunkSize_(wholeBlocks(ChunkBuffer::kChunkSize, blockSize_)) {}

  ChunkRead operator()(std::span<std::byte> chunk) {
    if (offset_ >= total_) return {.badBlocks = badBlocks_};
    const auto wanted =
        static_cast<std::size_t>(std::min(total_ - offset_, static_cast<std::int64_t>(chunkSize_)));
    const std::span<std::byte> bytes = chunk.first(wanted);
    IoResult read = device_.readAt(bytes, offset_);
    if (read.isGone) return {.error = read.error};
    if (read.error != 0) {
      const RescueResult rescue =
          rescueChunk(device_, bytes, offset_, blockSize_, [this] { return isOver_ || job_.isToStop(); });
      if (rescue.error != 0) return {.error = rescue.error};
      badBlocks_ += rescue.badBlocks;
      read.count = wanted;
      if (rescue.goodEnd > 0) goodEnd_ = offset_ + static_cast<std::int64_t>(rescue.goodEnd);
    } else {
      goodEnd_ = offset_ + static_cast<std::int64_t>(read.count);
    }
    offset_ += static_cast<std::int64_t>(read.count);
    return {.count = read.count, .badBlocks = badBlocks_, .goodEnd = goodEnd_};
  }

 private:
  const DeviceJob& job_;
  RawDevice& device_;
  const std::atomic<bool>& isOver_;
  const std::int64_t total_;
  const std::size_t blockSize_;
  const std::size_t chunkSize_;
  std::int64_t offset_ = 0;
  std::int64_t badBlocks_ = 0;
  std::int64_t goodEnd_ = 0;
};

std::string zeroFilled(std::int64_t badBlocks) {
  return std::to_string(badBlocks) + " unreadable block(s) zero-filled.\n";
}

class ImageRun {
 public:
  ImageRun(DeviceJob& job, RawDevice& device, const DeviceFacts& facts, NewImage& image)
      : job_(job), device_(device), facts_(facts), image_(image) {}

  JobEnd run() {
    Sha256 hasher;
    ChunkStream disk(buffer_, DiskReader(job_, device_, facts_, isOver_), &hasher);
    while (done_ < facts_.sizeBytes) {
      if (job_.isToStop()) return cancelled();
      const ChunkStream::Chunk chunk = disk.next();
      if (chunk.error != 0) return chunk.error == ECANCELED ? cancelled() : diskGone(chunk.error);
      if (chunk.count == 0) break;
      if (const int error = image_.append(chunk.memory.first(chunk.count))) return writeFailed(error);
      count(chunk);
    }
    disk.finish();
    const std::string digest = hexText(hasher.finish());
    if (const int error = image_.sync()) return writeFailed(error);
    if (const int reason = whyGone()) return diskGone(reason);
    return {Phase::finished, "Done. SHA-256 " + digest + "\n" + zeroFilled(badBlocks_), digest};
  }

 private:
  void count(const ChunkRead& chunk) {
    done_ += static_cast<std::int64_t>(chunk.count);
    badBlocks_ = chunk.badBlocks;
    goodEnd_ = chunk.goodEnd;
    job_.update([this](DeviceJobStatus& status) {
      status.bytesDone = done_;
      status.badBlocks = badBlocks_;
    });
  }

  // Reads begin to fail a moment before the system knows that the disk is gone, so that bad blocks at the end
  // may have been its going. 0 while it is there.
  int whyGone() {
    if (badBlocks_ == 0) return 0;
    const IoResult read = device_.readAt(buffer_.chunk(0).first(blockSizeOf(facts_)), 0);
    return read.isGone ? read.error : 0;
  }

  JobEnd cancelled() {
    image_.remove();
    return JobEnd::cancelled();
  }

  JobEnd writeFailed(int error) {
    isOver_ = true;
    return JobEnd::failed("Write failed: " + reasonText(error));
  }

  // The blocks at the end that could not be read were lost with the disk.
  JobEnd diskGone(int reason) {
    if (const int error = image_.sync()) return writeFailed(error);
    job_.update([this](DeviceJobStatus& status) {
      status.log += "The image is incomplete: its first " + std::to_string(goodEnd_) + " bytes are good, " +
                    zeroFilled(badBlocks_);
    });
    return JobEnd::failed("Read failed: " + reasonText(reason));
  }

  DeviceJob& job_;
  RawDevice& device_;
  const DeviceFacts& facts_;
  NewImage& image_;
  const ChunkBuffer buffer_;
  std::atomic<bool> isOver_ = false;  // the image takes no more
  std::int64_t done_ = 0;             // bytes
  std::int64_t badBlocks_ = 0;
  std::int64_t goodEnd_ = 0;  // as in ChunkRead, of what is in the image
};

JobEnd imageDisk(DeviceJob& job, const RawDeviceOpener& openDevice, const ImageWork& work) {
  std::unique_ptr<RawDevice> device;
  try {
    device = openDevice(rawDeviceOf(work.facts, RawDeviceRequest::Access::read));
  } catch (const std::system_error& error) {
    return JobEnd::failed("Cannot open device: " + reasonText(error.code().value()) + ". Is it unmounted?");
  }
  std::optional<NewImage> image;
  try {
    image.emplace(work.destination, work.peerUID);
  } catch (const std::system_error& error) {
    return JobEnd::failed("Cannot create " + work.destination + ": " + reasonText(error.code().value()));
  }
  image->giveTo(work.ownerUID);
  return ImageRun(job, *device, work.facts, *image).run();
}

}  // namespace

void runImage(DeviceJob& job, const RawDeviceOpener& openDevice, const ImageWork& work) {
  job.enter(Phase::running, "Reading /dev/r" + work.facts.bsdName + " → " + work.destination + "\n");
  job.end(imageDisk(job, openDevice, work));
}

}  // namespace molvane
