#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Platform/ChildProcess.hpp"

namespace molvane::bench {

namespace fs = std::filesystem;

/// A folder with a part on the disk, "disk", and one in memory, "memory", both gone at the end. Needs root.
class DeviceScratch {
 public:
  DeviceScratch();
  ~DeviceScratch();
  DeviceScratch(const DeviceScratch&) = delete;
  DeviceScratch& operator=(const DeviceScratch&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

  /// Of the images and devices in bytes: 1 GiB, or what MOLVANE_BENCH_MIB says.
  [[nodiscard]] std::int64_t size() const { return size_; }

  /// A file of that size and of no pattern; its path. Replaces one of that name.
  [[nodiscard]] std::string makeFile(const std::string& name) const;

 private:
  std::string path_;
  std::int64_t size_;
};

/// Shows a file in which some sectors of 512 bytes cannot be read.
class DamagedFile {
 public:
  DamagedFile(const DeviceScratch& scratch, const std::string& file,
              const std::vector<std::int64_t>& badSectors);
  ~DamagedFile();
  DamagedFile(const DamagedFile&) = delete;
  DamagedFile& operator=(const DamagedFile&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::unique_ptr<ChildProcess> server_;
};

}  // namespace molvane::bench
