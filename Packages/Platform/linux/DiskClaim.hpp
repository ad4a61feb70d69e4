#pragma once

#include <sys/types.h>

#include <string>

namespace molvane {

struct ClaimedDisk;

/// Keeps a disk, and the loop devices that show a part of it by then, from being mounted, or claimed by
/// anybody else, for as long as it lives. This process's jobs on one disk share the disk: the last claim to
/// go gives it back.
///
/// Meanwhile a file of the disk's name stands in the helper's folder of disks that are being written, which a
/// device rule asks for. Where the file cannot be made the claim holds all the same.
class DiskClaim {
 public:
  /// Claims the disk `number`, whose node is `path`. Throws std::system_error, EBUSY when the disk or such a
  /// loop device is in use. Any thread; only claims on the same disk wait for one another.
  DiskClaim(const std::string& path, dev_t number, const std::string& diskName);
  ~DiskClaim();
  DiskClaim(const DiskClaim&) = delete;
  DiskClaim& operator=(const DiskClaim&) = delete;

 private:
  ClaimedDisk& disk_;
};

}  // namespace molvane
