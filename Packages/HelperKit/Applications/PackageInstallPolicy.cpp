#include "HelperKit/Applications/PackageInstallPolicy.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "Platform/FileCopy.hpp"
#include "Platform/Log.hpp"
#include "Platform/StandardPath.hpp"

namespace molvane::PackageInstallPolicy {

namespace {

constexpr std::string_view kMagic = "xar!";

// How much longer a file may get while it is copied.
constexpr std::uint64_t kMostGrowth = std::uint64_t{1} << 30U;

ReceivedItem hold(const std::string& package, const std::string& home) {
  try {
    return holdReceivedItem(package, home);
  } catch (const InboxError& error) {
    throw Failure(error.which() == InboxErrorCase::link ? FailureCase::symlink : FailureCase::missing,
                  package);
  }
}

// Not blocking, so that a FIFO put in the package's place does not wait for a writer.
FileDescriptor openPackage(const ReceivedItem& package) {
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  return FileDescriptor(openat(package.item.folder.get(), package.item.name.c_str(), kFlags));
}

// The first bytes, four at most; empty when there are none or they cannot be read.
std::string beginning(const FileDescriptor& file) {
  std::array<char, kMagic.size()> bytes{};
  ssize_t count = 0;
  do {
    count = pread(file.get(), bytes.data(), bytes.size(), 0);
  } while (count < 0 && errno == EINTR);
  return count > 0 ? std::string(bytes.data(), static_cast<std::size_t>(count)) : std::string();
}

StagedItem emptyCopy(const StagingFolder& root) {
  try {
    return root.makeFile(".pkg");
  } catch (const std::filesystem::filesystem_error& error) {
    logLine(std::string("MolvaneHelper: ") + error.what());
    throw Failure(FailureCase::missing, error.path1());
  }
}

}  // namespace

std::string describe(FailureCase which, const std::string& payload) {
  switch (which) {
    case FailureCase::outsideInbox:
      return "Only packages received in company mode can be installed: " + payload;
    case FailureCase::symlink:
      return "Refusing to follow a symlink: " + payload;
    case FailureCase::notOwned:
      return "The package does not belong to the person logged in: " + payload;
    case FailureCase::missing:
      return "Not found: " + payload;
    case FailureCase::notAPackage:
      return "Not an installer package: " + payload;
    case FailureCase::notAccepted:
      return "macOS would not open this package (it must be signed with a Developer ID and notarized). " +
             payload;
    case FailureCase::installFailed:
      return payload;
  }
  return "Refused";
}

std::string inbox(const std::string& home) { return companyInbox(home); }

ReceivedItem validate(const std::string& path, const std::string& home, uid_t peerUID) {
  const std::string standardized = standardizingPathByName(path);
  if (!liesInCompanyInbox(standardized, home)) throw Failure(FailureCase::outsideInbox, standardized);
  ReceivedItem package = hold(standardized, home);
  const std::optional<struct stat> status = package.status();
  if (!status) throw Failure(FailureCase::missing, standardized);
  if (S_ISLNK(status->st_mode)) throw Failure(FailureCase::symlink, standardized);
  if (!S_ISREG(status->st_mode)) throw Failure(FailureCase::notAPackage, standardized);
  if (status->st_uid != peerUID) throw Failure(FailureCase::notOwned, standardized);

  const FileDescriptor file = openPackage(package);
  if (!file) throw Failure(FailureCase::missing, standardized);
  const std::string magic = beginning(file);
  if (magic.empty()) throw Failure(FailureCase::missing, standardized);
  if (magic != kMagic) throw Failure(FailureCase::notAPackage, standardized);
  return package;
}

StagedItem stage(const ReceivedItem& package, uid_t peerUID, const StagingFolder& root) {
  const FileDescriptor source = openPackage(package);
  if (!source) throw Failure(FailureCase::missing, package.path);
  struct stat status {};
  if (fstat(source.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != peerUID) {
    throw Failure(FailureCase::notOwned, package.path);
  }
  StagedItem copy = emptyCopy(root);
  copyToEnd(source, copy.descriptor(), static_cast<std::uint64_t>(status.st_size) + kMostGrowth);
  // The file may have been rewritten since it was looked at.
  if (beginning(copy.descriptor()) != kMagic) throw Failure(FailureCase::notAPackage, package.path);
  return copy;
}

MaintenanceTask::Command assess(const std::string& path) {
  return {"/usr/sbin/spctl", {"--assess", "--type", "install", path}};
}

MaintenanceTask::Command install(const std::string& path) {
  return {"/usr/sbin/installer", {"-pkg", path, "-target", "/"}};
}

}  // namespace molvane::PackageInstallPolicy
