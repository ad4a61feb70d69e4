#include "Platform/Bundle.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "Platform/FileDescriptor.hpp"

namespace molvane {

namespace {

constexpr std::size_t kMaximumInfoPlistSize = std::size_t{1} << 20U;

std::optional<FileIdentity> identityOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return fileIdentity(status);
}

/// The whole of a regular file, nothing when it cannot be read or is too large.
std::optional<std::string> contentOf(const std::string& path) {
  // Without O_NONBLOCK a FIFO in the file's place would hold the caller.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;

  std::string content(kMaximumInfoPlistSize + 1, '\0');
  std::size_t size = 0;
  while (size < content.size()) {
    const ssize_t got = ::read(file.get(), content.data() + size, content.size() - size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    size += static_cast<std::size_t>(got);
  }
  if (size > kMaximumInfoPlistSize) return std::nullopt;
  content.resize(size);
  return content;
}

std::shared_ptr<const PropertyList> propertyListAt(const std::string& path) {
  const std::optional<std::string> content = contentOf(path);
  if (!content) return nullptr;
  std::optional<PropertyList> list = parsePropertyList(*content);
  return list ? std::make_shared<const PropertyList>(std::move(*list)) : nullptr;
}

}  // namespace

Bundle::Bundle(std::string infoPlistPath) : infoPlistPath_(std::move(infoPlistPath)) {}

std::optional<std::string> Bundle::infoString(std::string_view key) {
  const std::shared_ptr<const PropertyList> info = this->info();
  const PropertyList* value = info ? info->find(key) : nullptr;
  const auto* text = value != nullptr ? value->as<std::string>() : nullptr;
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

std::shared_ptr<const PropertyList> Bundle::info() {
  const std::optional<FileIdentity> before = identityOf(infoPlistPath_);
  if (!before) return nullptr;
  {
    const MutexLock lock(mutex_);
    if (identity_ == before) return info_;
  }
  std::shared_ptr<const PropertyList> info = propertyListAt(infoPlistPath_);
  // A file that was changed while it was read is read again the next time.
  if (identityOf(infoPlistPath_) == before) {
    const MutexLock lock(mutex_);
    identity_ = before;
    info_ = info;
  }
  return info;
}

}  // namespace molvane
