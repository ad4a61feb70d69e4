#pragma once

#include <string>

#include "Platform/FileDescriptor.hpp"

namespace molvane::testing {

/// A loop device over a file, gone when the object goes, or the process with it. Needs root.
class LoopDevice {
 public:
  struct Options {
    bool isDirect = false;  ///< past the page cache of the file's file system
    bool isReadOnly = false;
  };

  /// Throws std::system_error when there is none to be had.
  explicit LoopDevice(const std::string& file);
  LoopDevice(const std::string& file, Options options);
  /// Of its node, such as "/dev/loop3".
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
  FileDescriptor device_;
};

}  // namespace molvane::testing
