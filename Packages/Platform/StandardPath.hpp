#pragma once

#include <string>
#include <string_view>

namespace molvane {

/// `path` in the platform's standard form, in which paths are compared with each other:
///
/// - a leading "~" becomes the home folder of the process's effective user as the user database has it (the
///   environment is not asked), "~name" that of the user; an unknown user's stays as it is;
/// - repeated slashes, single-dot components and a trailing slash go;
/// - in an absolute path each ".." goes up from what stands before it: to the real parent where that exists
///   (links on the way are followed), to the one by name where it does not; above "/" there is nothing;
/// - a leading "/private" goes for as long as something exists at the rest (a final link is followed).
///
/// Relative paths stay relative and keep their "..". A link that no ".." follows is not resolved, the last
/// component never is. The result of an absolute path is absolute and holds no ".."; standardizing it again
/// changes nothing while the file system stays as it is.
///
/// Paths are bytes. One that no file can have, with a NUL or longer than PATH_MAX, is treated as text alone.
/// May be called from any thread. Nothing is promised about the file system at a later moment.
[[nodiscard]] std::string standardizingPath(std::string_view path);

/// The same, but each ".." takes away the component before it and no link is followed for it. For a path of
/// somebody who may not see where the links on it lead; "/private" still shows whether something exists.
[[nodiscard]] std::string standardizingPathByName(std::string_view path);

}  // namespace molvane
