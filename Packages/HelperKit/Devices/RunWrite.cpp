#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

#include "Base/NSError.hpp"
#include "Base/Poly1305.hpp"
#include "HelperKit/Devices/ChunkStream.hpp"
#include "HelperKit/Devices/DeviceJobWork.hpp"
#include "Platform/SecureRandom.hpp"
#include "Platform/StreamedFile.hpp"
#include "Platform/UserRights.hpp"

namespace molvane {
namespace {

using Phase = DeviceJobStatus::Phase;

constexpr const char* kCancelledLine = "Cancelled — the device is now partially written.\n";

// The person may have put another file in the place of the one that was validated; what is open decides. It
// is opened with the person's rights, since folders on the way may be closed to them; its own bits are looked
// at besides, since the right to read it must not come from a group.
FileDescriptor openImage(const WriteWork& work) {
  FileDescriptor image;
  withRightsOf(work.peerUID, [&] { image = openStreamedFile(work.source); });
  struct stat status {};
  if (::fstat(image.get(), &status) != 0) throwErrno("fstat " + work.source);
  if (status.st_uid != work.peerUID && (status.st_mode & S_IROTH) == 0) {
    throw std::system_error(EACCES, std::generic_category(), work.source);
  }
  return image;
}

Poly1305::Key randomKey() {
  Poly1305::Key key{};
  const std::vector<std::uint8_t> bytes = secureRandomBytes(key.size());
  std::copy(bytes.begin(), bytes.end(), key.begin());
  return key;
}

// Both passes are tagged under a key of this job's own, which no disk can know. SHA-256, which bounds how
// fast an image can be written, is left for the one thing that needs it: the digest that the person is told.
class WriteRun {
 public:
  WriteRun(DeviceJob& job, const WriteWork& work, const FileDescriptor& image, RawDevice& device)
      : job_(job),
        work_(work),
        image_(image),
        device_(device),
        blockSize_(blockSizeOf(work.facts)),
        chunkSize_(wholeBlocks(ChunkBuffer::kChunkSize, blockSize_)) {}

  JobEnd run() {
    const std::optional<Written> written = write();
    if (!written) return *end_;
    if (work_.verify) {
      job_.update([](DeviceJobStatus& status) {
        status.phase = Phase::verifying;
        status.bytesDone = 0;
        status.log += "Verifying…\n";
      });
      const std::optional<Poly1305::Tag> found = readBack();
      if (!found) return *end_;
      if (*found != written->tag) {
        return JobEnd::failed("Verification failed: device content differs from the image.");
      }
      job_.update([](DeviceJobStatus& status) { status.log += "Verified.\n"; });
    }
    return {Phase::finished, "Done. SHA-256 " + written->digest + "\n", written->digest};
  }

 private:
  struct Written {
    std::string digest;
    Poly1305::Tag tag;
  };

  // What was written; nothing when the job ends here.
  std::optional<Written> write() {
    Sha256 hasher;
    Poly1305 mac(key_);
    const auto source = [this, offset = std::int64_t{0}](std::span<std::byte> chunk) mutable {
      return readImage(chunk, offset);
    };
    ChunkStream image(buffer_, source, &hasher);
    std::int64_t offset = 0;
    while (offset < work_.size) {
      if (job_.isToStop()) return cancelled();
      const ChunkStream::Chunk chunk = image.next();
      if (chunk.error != 0) return failed("Read failed: " + reasonText(chunk.error));
      if (chunk.count == 0) break;
      const std::span<std::byte> padded = chunk.memory.first(paddedSize(chunk.count));
      std::fill(padded.begin() + static_cast<std::ptrdiff_t>(chunk.count), padded.end(), std::byte{0});
      if (const int error = writeWhole(padded, offset)) {
        return failed("Device write failed: " + reasonText(error));
      }
      if (work_.verify) mac.update(chunk.memory.first(chunk.count));
      offset += static_cast<std::int64_t>(chunk.count);
      job_.update([offset](DeviceJobStatus& status) { status.bytesDone = offset; });
    }
    if (const int error = device_.sync()) return failed("Device write failed: " + reasonText(error));
    image.finish();
    return Written{hexText(hasher.finish()), mac.finish()};
  }

  // The tag of what the device holds; nothing when the job ends here.
  std::optional<Poly1305::Tag> readBack() {
    Poly1305 mac(key_);
    ChunkStream device(buffer_, [this, offset = std::int64_t{0}](std::span<std::byte> chunk) mutable {
      return readDevice(chunk, offset);
    });
    std::int64_t offset = 0;
    while (offset < work_.size) {
      if (job_.isToStop()) return cancelled();
      const ChunkStream::Chunk chunk = device.next();
      if (chunk.error != 0) return failed("Verify read failed: " + reasonText(chunk.error));
      mac.update(chunk.memory.first(chunk.count));
      offset += wantedAt(offset);
      job_.update([offset](DeviceJobStatus& status) { status.bytesDone = offset; });
    }
    return mac.finish();
  }

  ChunkRead readImage(std::span<std::byte> chunk, std::int64_t& offset) const {
    const auto wanted = static_cast<std::size_t>(wantedAt(offset));
    const IoResult read = readStreamed(image_, chunk.first(wanted), offset);
    // A file that has been cut short ends here, even if it grows again.
    offset = read.count < wanted ? work_.size : offset + static_cast<std::int64_t>(read.count);
    return {.count = read.count, .error = read.error};
  }

  ChunkRead readDevice(std::span<std::byte> chunk, std::int64_t& offset) {
    const auto wanted = static_cast<std::size_t>(wantedAt(offset));
    if (wanted == 0) return {};
    const IoResult read = device_.readAt(chunk.first(paddedSize(wanted)), offset);
    offset += static_cast<std::int64_t>(wanted);
    if (read.error == 0 && read.count == 0) return {.error = EIO};
    return {.count = std::min(read.count, wanted), .error = read.error};
  }

  // 0 or an errno value.
  int writeWhole(std::span<const std::byte> bytes, std::int64_t offset) {
    while (!bytes.empty()) {
      const IoResult written = device_.writeAt(bytes, offset);
      if (written.error != 0) return written.error;
      if (written.count == 0) return EIO;
      bytes = bytes.subspan(written.count);
      offset += static_cast<std::int64_t>(written.count);
    }
    return 0;
  }

  [[nodiscard]] std::int64_t wantedAt(std::int64_t offset) const {
    return std::min(work_.size - offset, static_cast<std::int64_t>(chunkSize_));
  }

  [[nodiscard]] std::size_t paddedSize(std::size_t count) const {
    return (count + blockSize_ - 1) / blockSize_ * blockSize_;
  }

  std::nullopt_t failed(const std::string& message) {
    end_ = JobEnd::failed(message);
    return std::nullopt;
  }

  std::nullopt_t cancelled() {
    end_ = JobEnd::cancelled(kCancelledLine);
    return std::nullopt;
  }

  DeviceJob& job_;
  const WriteWork& work_;
  const FileDescriptor& image_;
  RawDevice& device_;
  const std::size_t blockSize_;
  const std::size_t chunkSize_;
  const ChunkBuffer buffer_;
  const Poly1305::Key key_ = randomKey();
  std::optional<JobEnd> end_;  // why a pass came to nothing
};

JobEnd copyImage(DeviceJob& job, const RawDeviceOpener& openDevice, const WriteWork& work) {
  FileDescriptor image;
  try {
    image = openImage(work);
  } catch (const std::system_error& error) {
    return JobEnd::failed("Cannot open image: " + reasonText(error.code().value()));
  }
  std::unique_ptr<RawDevice> device;
  try {
    using Access = RawDeviceRequest::Access;
    device = openDevice(rawDeviceOf(work.facts, work.verify ? Access::readWrite : Access::write));
  } catch (const std::system_error& error) {
    return JobEnd::failed("Cannot open device for writing: " + reasonText(error.code().value()) +
                          ". Unmount it first.");
  }
  return WriteRun(job, work, image, *device).run();
}

}  // namespace

void runWrite(DeviceJob& job, const RawDeviceOpener& openDevice, const WriteWork& work) {
  job.enter(Phase::running, "Writing " + work.source + " → /dev/r" + work.facts.bsdName + "\n");
  job.end(copyImage(job, openDevice, work));
}

}  // namespace molvane
