#include "molvanectl/ImageLook.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

#include "Base/NSError.hpp"
#include "Platform/FileDescriptor.hpp"

namespace molvane::ctl {
namespace {

using namespace std::string_view_literals;

struct Magic {
  std::string_view bytes;  ///< at the beginning of the file
  std::string_view words;
};

constexpr std::array kMagics = {
    Magic{"\xFD\x37zXZ\0"sv, "is compressed with xz"},
    Magic{"\x1F\x8B"sv, "is compressed with gzip"},
    Magic{"\x28\xB5\x2F\xFD"sv, "is compressed with zstd"},
    Magic{"BZh"sv, "is compressed with bzip2"},
    Magic{"PK\x03\x04"sv, "is a zip archive"},
};
constexpr std::string_view kUdifTrailer = "koly";
constexpr off_t kUdifTrailerSize = 512;  // bytes, at the end of the file

/// The program's own group is put aside as long as this lives: it may open more than the person's rights do.
class OwnRights {
 public:
  OwnRights() : group_(::getegid()) {
    if (::setegid(::getgid()) != 0) throwErrno("put the program's group aside");
  }
  // It stays the saved group of the process, so it may be taken up again.
  ~OwnRights() { [[maybe_unused]] const int status = ::setegid(group_); }
  OwnRights(const OwnRights&) = delete;
  OwnRights& operator=(const OwnRights&) = delete;

 private:
  gid_t group_;
};

bool holds(const FileDescriptor& file, std::string_view bytes, off_t offset) {
  std::array<char, 8> found{};
  return ::pread(file.get(), found.data(), bytes.size(), offset) == static_cast<ssize_t>(bytes.size()) &&
         std::string_view(found.data(), bytes.size()) == bytes;
}

std::string oddityOf(const FileDescriptor& image, off_t size) {
  if (size == 0) return "is empty";
  for (const Magic& magic : kMagics) {
    if (holds(image, magic.bytes, 0)) return std::string(magic.words);
  }
  if (size >= kUdifTrailerSize && holds(image, kUdifTrailer, size - kUdifTrailerSize)) {
    return "is a UDIF disk image, most of which are compressed";
  }
  return {};
}

}  // namespace

ImageLook lookAtImage(const std::string& path) {
  const OwnRights rights;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {errno == ENOENT || errno == ENOTDIR, {}};
  // To open a device or a pipe can have effects, or take for ever.
  if (!S_ISREG(status.st_mode)) return {};
  const FileDescriptor image(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!image || ::fstat(image.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  return {false, oddityOf(image, status.st_size)};
}

}  // namespace molvane::ctl
