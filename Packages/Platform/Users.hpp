#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace molvane {

/// One entry of the user database.
struct User {
  std::string name;  ///< short name
  uid_t uid = 0;
  gid_t gid = 0;
  std::string home;  ///< as the database has it
};

/// The user of that identifier or short name; nothing when there is none or the database cannot be read. Any
/// thread.
[[nodiscard]] std::optional<User> userWithID(uid_t uid);
[[nodiscard]] std::optional<User> userNamed(const std::string& name);

/// The user who is logged in at the console, whose device that user then owns; nothing when nobody is, or it
/// cannot be told. Any thread.
[[nodiscard]] std::optional<User> consoleUser();

/// The user's home folder; "/nonexistent" for an identifier without an entry, so that a location below it
/// matches nothing.
[[nodiscard]] std::string homeFolder(uid_t uid);

}  // namespace molvane
