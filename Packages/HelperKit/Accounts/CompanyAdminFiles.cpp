#include "HelperKit/Accounts/CompanyAdminFiles.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <iterator>
#include <system_error>

#include "Base/NSError.hpp"
#include "Base/Wipe.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/FileManager.hpp"
#include "Platform/Log.hpp"
#include "Platform/SafeFile.hpp"

namespace molvane {

namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr mode_t kDoubtedMode = 0400;
constexpr std::size_t kMostBytes = std::size_t{64} << 10U;

void report(const std::string& what) { logLine("MolvaneHelper: company administrator: " + what); }

/// How far a file is trusted by the permissions that it has at most, narrowest first, and the mode that it
/// should have.
struct Row {
  mode_t widestMode;
  CompanyAdminFiles::Trust trust;
  mode_t mode;
};
constexpr Row kRows[] = {{kDoubtedMode, CompanyAdminFiles::Trust::doubted, kDoubtedMode},
                         {kFileMode, CompanyAdminFiles::Trust::believed, kFileMode},
                         {0644, CompanyAdminFiles::Trust::believed, kFileMode},
                         {07777, CompanyAdminFiles::Trust::doubted, kDoubtedMode}};

}  // namespace

void fromJson(const JsonValue& json, CompanyAdminState& state) {
  const JsonObjectReader object(json);
  Iso8601Date rotatedAt;
  object.read("name", state.name);
  object.read("password", state.password);
  object.read("rotatedAt", rotatedAt);
  state.rotatedAt = rotatedAt.date;
}

JsonValue toJson(const CompanyAdminState& state) {
  return JsonObjectWriter()
      .add("name", state.name)
      .add("password", state.password)
      .add("rotatedAt", Iso8601Date{state.rotatedAt})
      .take();
}

FileDescriptor CompanyAdminFiles::openOwnFolder() const {
  FileDescriptor folder(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) {
    if (errno == ENOENT) return folder;
    throwErrno("open " + folder_);
  }
  struct stat status {};
  if (::fstat(folder.get(), &status) != 0) throwErrno("look at " + folder_);
  if (status.st_uid != ::geteuid()) {
    throw std::system_error(EPERM, std::generic_category(), folder_ + " belongs to somebody else");
  }
  if ((status.st_mode & 07777 & ~kFolderMode) != 0 && ::fchmod(folder.get(), kFolderMode) != 0) {
    throwErrno("close " + folder_ + " to others");
  }
  return folder;
}

/// Throws as readStrictly does; not for a file that cannot be narrowed, which is as it was.
CompanyAdminFiles::Trust CompanyAdminFiles::readAndNarrow(const FileDescriptor& folder, const char* name,
                                                          std::string& bytes) {
  const Row* row = std::begin(kRows);
  while (true) {
    try {
      bytes = readStrictly(folder, name, {::geteuid(), row->widestMode, kMostBytes});
      break;
    } catch (const StrictReadError& error) {
      if (error.which() != StrictReadErrorCase::openToOthers || row + 1 == std::end(kRows)) throw;
      ++row;
    }
  }
  if (row->widestMode == row->mode) return row->trust;
  report(std::string(name) + " was open to others");
  try {
    // Replaced and not changed: the file may have another name somewhere, or be open for writing.
    replaceFile(folder, name, bytes, row->mode);
  } catch (const std::system_error& error) {
    report(error.what());
  }
  return row->trust;
}

CompanyAdminFiles::Found CompanyAdminFiles::read(const char* name) const {
  try {
    const FileDescriptor folder = openOwnFolder();
    if (!folder) return {};
    WipedText bytes;
    const Trust trust = readAndNarrow(folder, name, *bytes);
    return {.trust = trust, .state = decodedJson<CompanyAdminState>(*bytes)};
  } catch (const StrictReadError& error) {
    if (error.which() == StrictReadErrorCase::missing) return {};
    report(error.errorDescription());
  } catch (const DecodingError&) {
    // Its own words might quote the file.
    report(std::string(name) + " does not hold what it should");
  } catch (const std::exception& error) {
    report(error.what());
  }
  return {.trust = Trust::notBelieved, .state = {}};
}

void CompanyAdminFiles::write(const char* name, const CompanyAdminState& state) const {
  const WipedText bytes(encodedJson(state));
  FileManager::createDirectory(folder_, kFolderMode);
  const FileDescriptor folder = openOwnFolder();
  const Found found = read(name);
  const bool isDoubt = found.trust == Trust::doubted && found.state != state;
  if (found.trust == Trust::notBelieved || isDoubt) report("set aside as " + setFileAside(folder, name));
  replaceFile(folder, name, *bytes, kFileMode);
}

void CompanyAdminFiles::remove(const char* name) const try {
  const FileDescriptor folder = openOwnFolder();
  if (!folder) return;
  if (::unlinkat(folder.get(), name, 0) != 0) {
    if (errno == ENOENT) return;
    throwErrno(std::string("remove ") + name);
  }
  if (::fsync(folder.get()) != 0) throwErrno("sync " + folder_);
} catch (const std::system_error& error) {
  report(error.what());
}

void CompanyAdminFiles::clearUp() const try {
  const FileDescriptor folder = openOwnFolder();
  if (!folder) return;
  removeAbandonedTemporaries(folder, kStateName);
  removeAbandonedTemporaries(folder, kPendingName);
} catch (const std::system_error& error) {
  report(error.what());
}

}  // namespace molvane
