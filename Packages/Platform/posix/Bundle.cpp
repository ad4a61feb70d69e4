#include "Platform/Bundle.hpp"

#include <sys/stat.h>

#include <cstddef>
#include <system_error>

#include "Platform/SafeFile.hpp"

namespace molvane {

namespace {

constexpr std::size_t kMaximumInfoPlistSize = std::size_t{1} << 20U;

std::optional<FileIdentity> identityOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return fileIdentity(status);
}

/// Nothing when it cannot be read, is too large or no property list.
std::shared_ptr<const PropertyList> propertyListAt(const std::string& path) try {
  const std::optional<std::string> content = readSmallFile(path, kMaximumInfoPlistSize);
  if (!content) return nullptr;
  std::optional<PropertyList> list = parsePropertyList(*content);
  return list ? std::make_shared<const PropertyList>(std::move(*list)) : nullptr;
} catch (const std::system_error&) {
  return nullptr;
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
