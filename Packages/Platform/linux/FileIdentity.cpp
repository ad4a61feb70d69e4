#include "Platform/FileIdentity.hpp"

namespace molvane {

namespace {

std::int64_t nanoseconds(const timespec& time) noexcept {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

FileIdentity fileIdentity(const struct stat& status) noexcept {
  return {status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim),
          nanoseconds(status.st_ctim)};
}

}  // namespace molvane
