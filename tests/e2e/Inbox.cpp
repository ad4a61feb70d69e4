#include "Inbox.hpp"

#include <fcntl.h>
#include <grp.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "Platform/FileDescriptor.hpp"

namespace molvane::e2e {

namespace fs = std::filesystem;

namespace {

void runSigningTool(const std::string& tool, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), std::string(std::getenv("MACROOT")) + "/signing/" + tool);
  const Outcome outcome = run(arguments);
  if (outcome.status != 0) throw std::runtime_error(tool + ": " + outcome.err);
}

void become(Person who) {
  if (setgroups(0, nullptr) != 0 || setresgid(who.gid, who.gid, who.gid) != 0 ||
      setresuid(who.uid, who.uid, who.uid) != 0) {
    _exit(1);
  }
}

}  // namespace

void giveTo(const fs::path& path, Person who) {
  if (lchown(path.c_str(), who.uid, who.gid) != 0) throw std::runtime_error("chown " + path.string());
  if (!fs::is_directory(fs::symlink_status(path))) return;
  for (const auto& entry : fs::recursive_directory_iterator(path)) {
    if (lchown(entry.path().c_str(), who.uid, who.gid) != 0) throw std::runtime_error("chown");
  }
}

std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(folder, missing)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

std::string infoPlist(const std::string& identifier) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
         "version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
         "<string>" +
         identifier + "</string></dict></plist>\n";
}

void makeBundle(const fs::path& path, const std::string& identifier, const std::string& version) {
  writeFile(path / "Contents/Info.plist", infoPlist(identifier));
  writeFile(path / "Contents/MacOS/Program", "#!/bin/sh\necho " + version + "\n");
  fs::permissions(path / "Contents/MacOS/Program", fs::perms(0755));
  fs::create_directories(path / "Contents/Resources");
  fs::create_symlink("MacOS/Program", path / "Contents/Link");
}

void signBundle(const fs::path& path, const std::string& leaf) {
  runSigningTool("sign-folder", {path, "com.example.any", "Contents/_CodeSignature/CodeSignature", leaf});
}

std::string versionOf(const fs::path& bundle) {
  const fs::path program = bundle / "Contents/MacOS/Program";
  if (!fs::exists(program)) return {};
  return run({program}).out;
}

Inbox::Inbox(Person owner, fs::path home)
    : owner_(owner), home_(std::move(home)), path_(home_ / "Library/Caches/MacMolvane/Company") {
  removeInstalled();
  fs::create_directories(path_);
  giveTo(home_ / "Library/Caches/MacMolvane", owner_);
}

Inbox::~Inbox() {
  std::error_code ignored;
  fs::remove_all(home_ / "Library/Caches/MacMolvane", ignored);
  removeInstalled();
}

void Inbox::removeInstalled() {
  std::error_code ignored;
  for (const auto& folder : {kApplications, kAppStaging, kPackageStaging}) {
    for (const auto& entry : fs::directory_iterator(folder, ignored)) fs::remove_all(entry, ignored);
  }
}

std::string Inbox::addApp(const std::string& name, const std::string& identifier,
                          const std::string& version) const {
  fs::remove_all(path_ / name);
  makeBundle(path_ / name, identifier, version);
  signBundle(path_ / name);
  giveTo(path_ / name, owner_);
  return path_ / name;
}

std::string Inbox::addPackage(const std::string& name, const fs::path& file, const std::string& content,
                              const std::string& leaf) const {
  const fs::path payload = fs::path("/tmp/payload");
  fs::remove_all(payload);
  writeFile(payload / file.relative_path(), content);
  std::vector<std::string> arguments{payload, "com.example.package", path_ / name};
  if (!leaf.empty()) arguments.push_back(leaf);
  runSigningTool("make-package", arguments);
  giveTo(path_ / name, owner_);
  fs::remove_all(payload);
  return path_ / name;
}

SecondName::SecondName(const fs::path& folder, fs::path name) : name_(std::move(name)) {
  fs::create_directory(name_);
  if (mount(folder.c_str(), name_.c_str(), nullptr, MS_BIND, nullptr) != 0) throw std::runtime_error("mount");
}

SecondName::~SecondName() {
  umount(name_.c_str());
  std::error_code ignored;
  fs::remove(name_, ignored);
}

Persistent::Persistent(Person who, const std::function<void()>& step) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  FileDescriptor begun(ends[0]);
  FileDescriptor toTell(ends[1]);
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork");
  if (pid_ == 0) {
    become(who);
    step();
    toTell.reset();
    for (;;) step();
  }
  toTell.reset();
  char end = 0;
  static_cast<void>(read(begun.get(), &end, 1));
}

Persistent::~Persistent() {
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

Persistent swapping(Person who, const fs::path& one, const fs::path& other) {
  return Persistent(who, [&] { renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE); });
}

}  // namespace molvane::e2e
