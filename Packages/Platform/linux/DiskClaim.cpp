#include "Platform/linux/DiskClaim.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

#include "Base/Mutex.hpp"
#include "Base/NSError.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/Log.hpp"
#include "Platform/ProcessDirectories.hpp"
#include "Platform/RawDevice.hpp"

namespace molvane {
namespace {

struct ClaimedDisk {
  FileDescriptor node;
  std::string marker;  // path; empty when there is none
  int claims = 0;
};

struct ClaimedDisks {
  // Held while a disk is opened and given back, and that alone: of two jobs that begin and end at once
  // neither may take the other for a stranger.
  Mutex mutex;
  std::map<dev_t, ClaimedDisk> byNumber MOLVANE_GUARDED_BY(mutex);
};

ClaimedDisks& claimedDisks() {
  static ClaimedDisks all;
  return all;
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

DiskClaim::DiskClaim(const std::string& path, dev_t number, const std::string& diskName) : number_(number) {
  ClaimedDisks& all = claimedDisks();
  const MutexLock lock(all.mutex);
  if (const auto known = all.byNumber.find(number); known != all.byNumber.end()) {
    ++known->second.claims;
    return;
  }
  FileDescriptor node(::open(path.c_str(), O_RDONLY | O_EXCL | O_CLOEXEC | O_NONBLOCK));
  if (!node) throwErrno("claim " + path);
  all.byNumber.emplace(number, ClaimedDisk{std::move(node), placeMarker(diskName), 1});
}

DiskClaim::~DiskClaim() {
  ClaimedDisks& all = claimedDisks();
  const MutexLock lock(all.mutex);
  const auto known = all.byNumber.find(number_);
  if (--known->second.claims > 0) return;
  if (!known->second.marker.empty()) ::unlink(known->second.marker.c_str());
  all.byNumber.erase(known);
}

void forgetDisksOfEarlierHelper() {
  std::error_code ignored;
  std::filesystem::remove_all(markerFolder(), ignored);
}

}  // namespace molvane
