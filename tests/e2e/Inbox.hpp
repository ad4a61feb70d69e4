#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Harness.hpp"

// What people have in their own folders, and what they do there while the helper works.

namespace molvane::e2e {

inline const std::filesystem::path kApplications = "/Applications";
inline const std::filesystem::path kAppStaging = "/Library/Application Support/MacMolvane/Apps";
inline const std::filesystem::path kPackageStaging = "/Library/Application Support/MacMolvane/Packages";

/// Makes everything at and below a path a person's; links themselves, not their targets.
void giveTo(const std::filesystem::path& path, Person who);

/// The names in a folder; none when there is no folder.
std::vector<std::string> namesIn(const std::filesystem::path& folder);

/// An Info.plist in XML with that identifier.
std::string infoPlist(const std::string& identifier);

/// Makes an application bundle, with a program that says `version`; root's.
void makeBundle(const std::filesystem::path& path, const std::string& identifier,
                const std::string& version = "1");
/// Signs a bundle with a leaf of the development authority.
void signBundle(const std::filesystem::path& path, const std::string& leaf = "developer-id");
/// What the bundle's program says, empty for none.
std::string versionOf(const std::filesystem::path& bundle);

/// A person's company inbox, made anew, with nothing installed or staged; gone with all that was when this
/// object goes.
class Inbox {
 public:
  explicit Inbox(Person owner = kAnn, std::filesystem::path home = "/Users/ann");
  ~Inbox();
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  [[nodiscard]] std::filesystem::path operator/(std::string_view name) const { return path_ / name; }
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  /// A signed application of the person's; the path.
  [[nodiscard]] std::string addApp(const std::string& name, const std::string& identifier,
                                   const std::string& version = "1") const;
  /// A package of the person's that installs `file` with that content; signed unless `leaf` is empty.
  [[nodiscard]] std::string addPackage(const std::string& name, const std::filesystem::path& file,
                                       const std::string& content,
                                       const std::string& leaf = "developer-id") const;

 private:
  static void removeInstalled();

  Person owner_;
  std::filesystem::path home_;
  std::filesystem::path path_;
};

/// A second name for a folder, as a volume that ignores case would give it, while this object lives.
class SecondName {
 public:
  SecondName(const std::filesystem::path& folder, std::filesystem::path name);
  ~SecondName();
  SecondName(const SecondName&) = delete;
  SecondName& operator=(const SecondName&) = delete;

 private:
  std::filesystem::path name_;
};

/// A process of a person's own that does one thing again and again until its object goes; it is under way
/// when the object has been made. `step` must not touch what a forked process must not.
class Persistent {
 public:
  Persistent(Person who, const std::function<void()>& step);
  ~Persistent();
  Persistent(const Persistent&) = delete;
  Persistent& operator=(const Persistent&) = delete;

 private:
  pid_t pid_ = -1;
};

/// Swaps two names for each other as a person, again and again.
Persistent swapping(Person who, const std::filesystem::path& one, const std::filesystem::path& other);

}  // namespace molvane::e2e
