#include "Platform/linux/DiskClaim.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <system_error>
#include <utility>
#include <vector>

#include "Base/Mutex.hpp"
#include "Base/NSError.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/Log.hpp"
#include "Platform/ProcessDirectories.hpp"
#include "Platform/RawDevice.hpp"
#include "Platform/linux/LoopDevices.hpp"

namespace molvane {

// Of two jobs on one disk that begin and end at once neither may take the other for a stranger, so the mutex
// is held while the disk is opened and given back.
struct ClaimedDisk {
  Mutex mutex;
  FileDescriptor node MOLVANE_GUARDED_BY(mutex);
  std::vector<FileDescriptor> loops MOLVANE_GUARDED_BY(mutex);
  std::string marker MOLVANE_GUARDED_BY(mutex);  // path; empty when there is none
  int claims MOLVANE_GUARDED_BY(mutex) = 0;
};

namespace {

// All that were ever claimed: no more than there are device numbers.
struct ClaimedDisks {
  Mutex mutex;
  std::map<dev_t, ClaimedDisk> byNumber MOLVANE_GUARDED_BY(mutex);
};

ClaimedDisk& claimedDisk(dev_t number) {
  static ClaimedDisks all;
  const MutexLock lock(all.mutex);
  return all.byNumber[number];
}

std::string markerFolder() { return runtimeDirectory() + "/writing"; }

std::string placeMarker(const std::string& diskName) {
  if (diskName.empty() || diskName.front() == '.' || diskName.find('/') != std::string::npos) return "";
  const std::string folder = markerFolder();
  std::string marker = folder + "/" + diskName;
  ::mkdir(folder.c_str(), 0755);
  const FileDescriptor file(::open(marker.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (file) return marker;
  logLine("MolvaneHelper: cannot mark " + diskName + " as being written");
  return "";
}

}  // namespace

DiskClaim::DiskClaim(const std::string& path, dev_t number, const std::string& diskName)
    : disk_(claimedDisk(number)) {
  const MutexLock lock(disk_.mutex);
  if (disk_.claims == 0) {
    FileDescriptor node(::open(path.c_str(), O_RDONLY | O_EXCL | O_CLOEXEC | O_NONBLOCK));
    if (!node) throwErrno("claim " + path);
    std::vector<FileDescriptor> loops = claimLoopDevicesOver(number);
    disk_.marker = placeMarker(diskName);
    disk_.node = std::move(node);
    disk_.loops = std::move(loops);
  }
  ++disk_.claims;
}

DiskClaim::~DiskClaim() {
  const MutexLock lock(disk_.mutex);
  if (--disk_.claims > 0) return;
  if (!disk_.marker.empty()) ::unlink(disk_.marker.c_str());
  disk_.node = FileDescriptor();
  disk_.loops.clear();
}

void forgetDisksOfEarlierHelper() {
  std::error_code ignored;
  std::filesystem::remove_all(markerFolder(), ignored);
}

}  // namespace molvane
