#pragma once

#include <sys/types.h>

#include <string>

namespace molvane {

/// Keeps a disk from being mounted, or claimed by anybody else, for as long as it lives. This process's jobs
/// on one disk share the disk: the last claim to go gives it back.
///
/// Meanwhile a file of the disk's name stands in the helper's folder of disks that are being written, which a
/// device rule asks for. Where the file cannot be made the claim holds all the same.
class DiskClaim {
 public:
  /// Claims the disk `number`, whose node is `path`. Throws std::system_error, EBUSY when the disk is in use.
  /// Any thread.
  DiskClaim(const std::string& path, dev_t number, const std::string& diskName);
  ~DiskClaim();
  DiskClaim(const DiskClaim&) = delete;
  DiskClaim& operator=(const DiskClaim&) = delete;

 private:
  const dev_t number_;
};

}  // namespace molvane
