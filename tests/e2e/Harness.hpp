#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/FileDescriptor.hpp"

/// Drives the installed helper from outside, inside the Mac-shaped root (macroot/enter), where it may be
/// harmed.
namespace molvane::e2e {

inline constexpr const char* kSocket = "/run/com.molvane.helper.sock";
inline constexpr const char* kHelperLog = "/var/log/MolvaneHelper.log";
inline constexpr const char* kManagerLog = "/var/log/macroot/launchd.log";
inline constexpr const char* kToolLog = "/var/log/macroot/tools.log";
inline constexpr const char* kInfoPlist = MOLVANE_DATADIR "/molvane-helper/Info.plist";
inline constexpr const char* kClient = MOLVANE_BINDIR "/molvanectl";
inline const std::filesystem::path kCaches = "/var/root/Library/Caches";

/// How long anything is waited for before the test fails. Nothing that works takes nearly as long.
inline constexpr std::chrono::seconds kPatience{60};

struct Person {
  uid_t uid;
  gid_t gid;
};
inline constexpr Person kRoot{0, 0};
inline constexpr Person kAnn{501, 20};
inline constexpr Person kBob{502, 20};

/// What a program ended with: its exit status, or 128 plus the signal's number, and what it wrote.
struct Outcome {
  int status;
  std::string out;
  std::string err;
};
void PrintTo(const Outcome& outcome, std::ostream* stream);

/// A running program. One that still runs when its object goes is killed.
class Program {
 public:
  /// Starts `arguments[0]`, an absolute path, as `who`, with no supplementary groups and nothing on standard
  /// input, and returns when it has begun. One that cannot be started ends with status 127.
  explicit Program(const std::vector<std::string>& arguments, Person who = kRoot);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }
  void kill(int signal) const;

  /// Waits for the end; throws std::runtime_error when it does not come within kPatience.
  Outcome wait();

 private:
  pid_t pid_ = -1;
  FileDescriptor handle_;
  FileDescriptor out_;
  FileDescriptor err_;
};

/// Runs a program to its end.
Outcome run(const std::vector<std::string>& arguments, Person who = kRoot);

/// Runs the installed client to its end.
Outcome molvanectl(std::vector<std::string> arguments, Person who = kAnn);

/// Follows a log from where it ends now.
class LogFollower {
 public:
  explicit LogFollower(const std::string& path);

  /// The next line that contains `text`; the lines before it are passed over. Throws std::runtime_error when
  /// there is none within `patience`.
  std::string waitFor(std::string_view text, std::chrono::seconds patience = kPatience);

 private:
  std::optional<std::string> nextLine();

  std::string path_;
  FileDescriptor file_;
  FileDescriptor watch_;
  std::string pending_;
};

/// The running helper's process, if it runs.
std::optional<pid_t> helperProcess();

/// Makes sure that no helper runs, so that the next connection starts a fresh one.
void endHelper();

/// Whether the condition holds within kPatience. Looks again and again; only for what nothing tells of.
bool eventually(const std::function<bool()>& condition);

/// Number of descriptors that the process has open.
std::size_t openDescriptors(pid_t process);

/// Replaces the content of a file; the folders above it are made.
void writeFile(const std::filesystem::path& path, std::string_view content);
std::string readFile(const std::filesystem::path& path);

/// A folder in the caches of the helper's own home, removed with its object.
class CacheFolder {
 public:
  explicit CacheFolder(const std::string& name);
  ~CacheFolder();
  CacheFolder(const CacheFolder&) = delete;
  CacheFolder& operator=(const CacheFolder&) = delete;

  [[nodiscard]] std::filesystem::path operator/(std::string_view name) const { return path_ / name; }
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// What a stand-in for a Mac tool does while this object lives; see macroot/lib/standin.sh for the
/// directives.
class ToolBehaviour {
 public:
  ToolBehaviour(std::string_view tool, std::string_view directives);
  ~ToolBehaviour();
  ToolBehaviour(const ToolBehaviour&) = delete;
  ToolBehaviour& operator=(const ToolBehaviour&) = delete;

 private:
  std::filesystem::path path_;
};

}  // namespace molvane::e2e
