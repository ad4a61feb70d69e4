#include "DeviceScratch.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <random>
#include <stdexcept>

#include "Base/NSError.hpp"
#include "Platform/FileDescriptor.hpp"

namespace molvane::bench {
namespace {

constexpr std::int64_t kMebibyte = 1024 * 1024;
constexpr long kFuse = 0x65735546;

std::int64_t wantedSize() {
  const char* text = std::getenv("MOLVANE_BENCH_MIB");
  return (text == nullptr ? 1024 : std::max(64L, std::atol(text))) * kMebibyte;
}

}  // namespace

DeviceScratch::DeviceScratch() : path_("/tmp/molvane-bench-XXXXXX"), size_(wantedSize()) {
  if (geteuid() != 0) throw std::runtime_error("loop devices need root");
  // What is mounted here vanishes with this process at the latest.
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    throwErrno("a private mount table");
  }
  if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no scratch folder");
  for (const char* part : {"/disk", "/memory", "/damaged"}) fs::create_directory(path_ + part);
  if (mount("tmpfs", (path_ + "/memory").c_str(), "tmpfs", 0, "size=90%") != 0)
    throwErrno("memory file system");
}

DeviceScratch::~DeviceScratch() {
  umount2((path_ + "/memory").c_str(), MNT_DETACH);
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string DeviceScratch::makeFile(const std::string& name) const {
  std::string path = path_ + "/" + name;
  fs::remove(path);
  std::ofstream file(path, std::ios::binary);
  std::mt19937_64 random(1);
  std::vector<std::uint64_t> piece(kMebibyte / sizeof(std::uint64_t));
  for (std::int64_t written = 0; written < size_; written += kMebibyte) {
    std::generate(piece.begin(), piece.end(), random);
    file.write(reinterpret_cast<const char*>(piece.data()), kMebibyte);
  }
  if (!file.flush()) throw std::runtime_error("no room for " + path);
  return path;
}

DamagedFile::DamagedFile(const DeviceScratch& scratch, const std::string& file,
                         const std::vector<std::int64_t>& badSectors)
    : path_(scratch.path() + "/damaged/nbd") {
  const std::string map = scratch.path() + "/damage.map";
  std::ofstream text(map);
  text << "0x0 ?\n";
  std::int64_t good = 0;
  for (const std::int64_t sector : badSectors) {
    text << fmt::format("{:#x} {:#x} +\n{:#x} 0x200 -\n", good, sector * 512 - good, sector * 512);
    good = sector * 512 + 512;
  }
  text << fmt::format("{:#x} {:#x} +\n", good, scratch.size() - good) << std::flush;

  // Its words about every failed read must not fill a pipe that nobody empties.
  const std::string command = fmt::format(
      "exec nbdfuse {}/damaged [ nbdkit --exit-with-parent --filter=ddrescue file {} ddrescue-mapfile={} ] "
      "> /dev/null 2>&1",
      scratch.path(), file, map);
  server_ = std::make_unique<ChildProcess>(
      ChildProcess::Options{"/bin/sh", {"-c", command}, ChildProcess::StandardInput::null});
  const auto deadline = ChildProcess::Clock::now() + std::chrono::seconds(30);
  struct statfs shown {};
  while (statfs(path_.c_str(), &shown) != 0 || shown.f_type != kFuse) {
    const auto soon = ChildProcess::Clock::now() + std::chrono::milliseconds(20);
    const bool ended = server_->pump(soon, [](std::string_view) {});
    if (ended || soon > deadline) throw std::runtime_error("nbdfuse does not serve");
  }
}

DamagedFile::~DamagedFile() {
  umount2((path_.substr(0, path_.rfind('/'))).c_str(), MNT_DETACH);
  server_->pump(ChildProcess::Clock::now() + std::chrono::seconds(10), [](std::string_view) {});
}

}  // namespace molvane::bench
