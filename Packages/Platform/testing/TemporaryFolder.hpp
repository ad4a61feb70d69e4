#pragma once

#include <string>

namespace molvane {

/// A new folder of its own for a test, gone with all that it holds when the test ends.
class TemporaryFolder {
 public:
  TemporaryFolder();
  explicit TemporaryFolder(const std::string& parent);
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  /// Absolute and standardised.
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace molvane
