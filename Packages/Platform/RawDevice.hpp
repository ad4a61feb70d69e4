#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace molvane {

/// What one request came to: the bytes moved, or an errno value and no bytes. No bytes without an error mean
/// the end.
struct IoResult {
  std::size_t count = 0;
  int error = 0;
  bool isGone = false;  ///< the disk itself is no longer there, and `error` says how

  bool operator==(const IoResult&) const = default;
};

/// An open disk without a cache in between: what is read comes from the device. One thread at a time, unless
/// an implementation grants more.
class RawDevice {
 public:
  virtual ~RawDevice() = default;

  /// One request for `bytes.size()` bytes at `offset`; may come back short. Whole blocks of the device in
  /// page-aligned memory go straight through; anything else is read too, a block at a time.
  ///
  /// Whenever no bytes come, the disk is looked for: its name must still stand for the disk that was opened,
  /// with the same size. Otherwise the result says that the disk is gone, even where the system reports the
  /// end or an unreadable area.
  virtual IoResult readAt(std::span<std::byte> bytes, std::int64_t offset) = 0;

  /// One request; may come back short. Whole blocks in page-aligned memory only: EINVAL for anything else.
  virtual IoResult writeAt(std::span<const std::byte> bytes, std::int64_t offset) = 0;

  /// Waits until everything written has reached the medium. Returns 0 or an errno value.
  virtual int sync() = 0;
};

struct RawDeviceRequest {
  enum class Access { read, write, readWrite };

  std::string path;            ///< the device's node
  std::string diskName;        ///< the disk's own name, such as "disk4"; empty when it has none to go by
  std::int64_t sizeBytes = 0;  ///< what the disk is known to hold
  Access access = Access::read;
};

/// Opens a whole disk past the page cache. Throws std::system_error: EBUSY when it is to be written and a
/// volume of it is mounted, also by way of a disk image device over it, or something else holds it, ENOTBLK
/// for what is no disk, ENODEV for a disk of another name than `diskName` or another size than `sizeBytes`,
/// which is not the one that was meant.
///
/// While a disk is open for writing nobody else can mount it or claim it, nor the disk image devices that
/// show a part of it by then, and the desktop is asked to leave it alone; other jobs of this process are not
/// kept from it.
[[nodiscard]] std::unique_ptr<RawDevice> openRawDevice(const RawDeviceRequest& request);

/// Removes the "being written" markers left by a helper that was killed. For a helper that starts, before its
/// first disk; best effort.
void forgetDisksOfEarlierHelper();

}  // namespace molvane
