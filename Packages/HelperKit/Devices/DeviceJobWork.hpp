#pragma once

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "HelperKit/Devices/DeviceFacts.hpp"
#include "HelperKit/Devices/DeviceJobTable.hpp"
#include "Platform/RawDevice.hpp"

// The work of the four kinds of device job. Each runs to its end on the calling thread and reports through
// the job's status alone; std::system_error or std::exception leaves it only where the system itself gives
// out (no memory, no thread), and then the caller fails the job.

namespace molvane {

/// How work opens a disk: openRawDevice, but for tests.
using RawDeviceOpener = std::function<std::unique_ptr<RawDevice>(const RawDeviceRequest&)>;

/// Copies an image onto a disk, byte for byte.
struct WriteWork {
  std::string source;         ///< the image file, as it was validated
  std::int64_t size = 0;      ///< its bytes; what it has grown by since then is not written
  DeviceFacts facts;          ///< of the disk
  bool verify = false;        ///< read the disk back and compare
  std::uint32_t peerUID = 0;  ///< who asked; must be able to read the image that is opened
};
/// Cancelled or failed, the disk keeps what was written to it by then.
void runWrite(DeviceJob& job, const RawDeviceOpener& openDevice, const WriteWork& work);

/// Copies a disk into a new image file; what cannot be read becomes zeros.
struct ImageWork {
  DeviceFacts facts;           ///< of the disk
  std::string destination;     ///< the file to create, as it was validated
  std::uint32_t ownerUID = 0;  ///< whom to give the file to
  std::uint32_t peerUID = 0;   ///< who asked; must be able to create the file
};
/// Cancelled, the file is gone again. Failed, what there is of it stays; where the disk itself went away, the
/// log says how many bytes of it are good.
void runImage(DeviceJob& job, const RawDeviceOpener& openDevice, const ImageWork& work);

/// What bounds the work with a tool.
struct ToolLimits {
  std::chrono::milliseconds poll{500};  ///< between two looks at whether the job is to stop
  std::chrono::milliseconds outputAfterExit{
      5000};                        ///< wait for output still in the pipe when the tool has ended
  std::size_t kibibytesKept = 256;  ///< of a tool's output; a last line says that the rest was dropped
};

/// Runs an installer's tool over a volume. Its output is logged as it comes. To stop it is to send it
/// SIGTERM, again and again until it is gone: the job ends with the tool and not before, unless it is to
/// leave the tool. A job that is to stop already does not begin.
void runInstallMedia(DeviceJob& job, const std::string& tool, const std::string& volume,
                     const ToolLimits& limits = {});

/// Runs a short tool to its end and logs what it wrote. It is never stopped: a job that is to leave it ends,
/// and the tool goes on by itself.
void runFixedTool(DeviceJob& job, const std::string& executable, const std::vector<std::string>& arguments,
                  const ToolLimits& limits = {});

/// The end of a job that left its tool to itself.
[[nodiscard]] inline JobEnd leftRunning(const std::string& tool) {
  return JobEnd::failed("The helper no longer waits for " + tool + ", which may still be running.");
}

/// The system's text for an errno value, such as "Permission denied".
[[nodiscard]] inline std::string reasonText(int error) { return std::generic_category().message(error); }

/// The size of a disk's blocks in bytes.
[[nodiscard]] inline std::size_t blockSizeOf(const DeviceFacts& facts) {
  return facts.blockSize > 512 ? static_cast<std::size_t>(facts.blockSize) : 512;
}

/// The size of the largest whole number of blocks that fits in a chunk, in bytes. Throws std::system_error
/// (EINVAL) for a block that is larger than a chunk.
[[nodiscard]] inline std::size_t wholeBlocks(std::size_t chunkSize, std::size_t blockSize) {
  if (blockSize > chunkSize) throw std::system_error(EINVAL, std::generic_category(), "block size");
  return chunkSize / blockSize * blockSize;
}

/// How to open the raw device of a disk.
[[nodiscard]] inline RawDeviceRequest rawDeviceOf(const DeviceFacts& facts, RawDeviceRequest::Access access) {
  return {.path = "/dev/r" + facts.bsdName,
          .diskName = facts.bsdName,
          .sizeBytes = facts.sizeBytes,
          .access = access};
}

}  // namespace molvane
