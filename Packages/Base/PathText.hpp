#pragma once

#include <string>
#include <string_view>

// Paths as text: nothing here asks the file system. A path is any bytes; components are what stands between
// slashes, repeated slashes count as one, and slashes at the end do not count.

namespace molvane {

/// The last component of `path`: "/" when there is nothing but slashes, empty for an empty path. "." and ".."
/// are components like others.
[[nodiscard]] std::string lastPathComponent(std::string_view path);

/// What follows the last dot of the last component. Empty when there is no dot, when the only one leads the
/// component
/// (".profile"), or when the component ends with one.
[[nodiscard]] std::string pathExtension(std::string_view path);

/// `path` without its last component, with repeated slashes made one: "/" for what stands directly below it
/// and for
/// "/" itself, empty for a relative path of one component.
[[nodiscard]] std::string deletingLastPathComponent(std::string_view path);

/// `component` below `path`, joined by one slash. Empty on either side: the other, as it is.
[[nodiscard]] std::string appendingPathComponent(std::string_view path, std::string_view component);

/// Whether `path` begins with a slash.
[[nodiscard]] bool isAbsolutePath(std::string_view path) noexcept;

}  // namespace molvane
