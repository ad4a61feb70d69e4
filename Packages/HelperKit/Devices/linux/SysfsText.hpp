#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Reading sysfs: files of one line or a few. What cannot be read is absent: a device may go at any moment.

namespace molvane::SysfsText {

/// The file's text without white space at its ends.
[[nodiscard]] std::optional<std::string> read(const std::string& path);

/// Whether one line of the file is exactly `line`.
[[nodiscard]] bool hasLine(const std::string& path, std::string_view line);

/// The names in a folder, sorted, at most 65,536; nothing when the folder exists and cannot be listed.
[[nodiscard]] std::optional<std::vector<std::string>> namesIn(const std::string& folder);

}  // namespace molvane::SysfsText
