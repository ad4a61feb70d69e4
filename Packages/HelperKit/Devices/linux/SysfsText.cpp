#include "HelperKit/Devices/linux/SysfsText.hpp"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <system_error>

#include "Base/Text.hpp"
#include "Platform/SafeFile.hpp"

namespace molvane::SysfsText {

std::optional<std::string> read(const std::string& path) try {
  constexpr std::size_t kMaxSize = std::size_t{64} << 10U;  // the kernel gives a page at most
  const std::optional<std::string> text = readSmallFile(path, kMaxSize);
  if (!text) return std::nullopt;
  return trimmingWhitespaceAndNewlines(*text);
} catch (const std::system_error&) {
  return std::nullopt;
}

bool hasLine(const std::string& path, std::string_view line) {
  const std::vector<std::string> all = lines(read(path).value_or(""));
  return std::find(all.begin(), all.end(), line) != all.end();
}

std::optional<std::vector<std::string>> namesIn(const std::string& folder) {
  constexpr std::size_t kMostNames = 65536;
  std::error_code error;
  std::vector<std::string> names;
  std::filesystem::directory_iterator entry(folder, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    if (names.size() == kMostNames) return std::nullopt;
    names.push_back(entry->path().filename().string());
  }
  if (error && error != std::errc::no_such_file_or_directory) return std::nullopt;
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace molvane::SysfsText
