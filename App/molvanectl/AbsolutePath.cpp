#include "molvanectl/AbsolutePath.hpp"

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "Base/PathText.hpp"
#include "Base/Utf8.hpp"

namespace molvane::ctl {

std::string absolutePath(const std::string& path) {
  if (path.empty() || isAbsolutePath(path)) return path;
  std::error_code why;
  const std::string folder = std::filesystem::current_path(why).string();
  if (why) throw std::runtime_error("The current folder has no path: " + why.message() + ".");
  std::string absolute = appendingPathComponent(folder, path);
  if (!isValidUtf8(absolute)) throw std::runtime_error("The path of the current folder is not valid UTF-8.");
  return absolute;
}

}  // namespace molvane::ctl
