#include "Platform/testing/TemporaryFolder.hpp"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "Base/NSError.hpp"

namespace molvane {

TemporaryFolder::TemporaryFolder() : TemporaryFolder(std::filesystem::temp_directory_path().string()) {}

TemporaryFolder::TemporaryFolder(const std::string& parent) : path_(parent + "/molvane-test-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) throwErrno("create " + path_);
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace molvane
