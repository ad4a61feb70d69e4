#include "Platform/StreamedFile.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "Platform/UserRights.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

constexpr std::size_t kSize = std::size_t{8} * 1024 * 1024;

// A folder on a disk: a file system in memory has no cache to keep clean.
class DiskFolder {
 public:
  DiskFolder() : path_("/var/tmp/molvane-test-XXXXXX") { EXPECT_NE(mkdtemp(path_.data()), nullptr); }
  ~DiskFolder() {
    ::unlink(file().c_str());
    ::rmdir(path_.c_str());
  }
  DiskFolder(const DiskFolder&) = delete;
  DiskFolder& operator=(const DiskFolder&) = delete;
  [[nodiscard]] std::string file() const { return path_ + "/file"; }

 private:
  std::string path_;
};

// Of the half of the file, in pages.
std::size_t cachedPages(const FileDescriptor& file, std::size_t begin, std::size_t length) {
  void* memory = ::mmap(nullptr, length, PROT_READ, MAP_SHARED, file.get(), static_cast<off_t>(begin));
  EXPECT_NE(memory, MAP_FAILED);
  std::vector<unsigned char> pages(length / 4096);
  EXPECT_EQ(::mincore(memory, length, pages.data()), 0);
  ::munmap(memory, length);
  std::size_t count = 0;
  for (const unsigned char page : pages) count += page & 1U;
  return count;
}

TEST(StreamedFile, LeavesThePageCacheAsItWas) {
  const DiskFolder folder;
  std::string content(kSize, '\0');
  for (std::size_t i = 0; i < kSize; ++i) content[i] = static_cast<char>(i / 4096 + i);
  std::ofstream(folder.file(), std::ios::binary) << content;
  const FileDescriptor file = openStreamedFile(folder.file());
  ASSERT_EQ(::fsync(file.get()), 0);
  ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_DONTNEED);
  if (cachedPages(file, 0, kSize) != 0) GTEST_SKIP() << "this file system does not let go of pages";
  std::string warm(kSize / 2, '\0');
  ASSERT_EQ(::pread(file.get(), warm.data(), warm.size(), 0), static_cast<ssize_t>(warm.size()));
  const std::size_t warmPages = cachedPages(file, 0, kSize / 2);
  ASSERT_EQ(warmPages, kSize / 2 / 4096);

  std::string read(kSize + 1000, '\0');
  EXPECT_EQ(readStreamed(file, std::as_writable_bytes(std::span(read)), 0), (IoResult{kSize, 0}));
  EXPECT_TRUE(read.starts_with(content));
  EXPECT_EQ(cachedPages(file, 0, kSize / 2), warmPages);
  EXPECT_EQ(cachedPages(file, kSize / 2, kSize / 2), 0U);
  EXPECT_EQ(readStreamed(file, std::as_writable_bytes(std::span(read)), kSize), (IoResult{0, 0}));

  const FileDescriptor writer(::open(folder.file().c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::pwrite(writer.get(), content.data(), kSize / 2, 0), static_cast<ssize_t>(kSize / 2));
  beginWritingOut(writer, 0, kSize / 2);
  writeOutAndForget(writer, 0, kSize / 2);
  EXPECT_EQ(cachedPages(file, 0, kSize / 2), 0U);
}

// What a process has open, and where it stands, may lie in a folder that is closed to the person.
TEST(StreamedFile, IsNotReachedThroughAProcess) {
  const TemporaryFolder folder;
  std::ofstream(folder.path() + "/closed.img") << "closed";
  const FileDescriptor open = openStreamedFile(folder.path() + "/closed.img");
  const std::string link = folder.path() + "/link.img";
  ASSERT_EQ(::symlink(("/proc/self/fd/" + std::to_string(open.get())).c_str(), link.c_str()), 0);
  try {
    static_cast<void>(openStreamedFile(link));
    ADD_FAILURE() << "led to an open file";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ELOOP);
  }

  if (::geteuid() != 0) GTEST_SKIP() << "needs root: another user's rights";
  const std::string parent = "/proc/" + std::to_string(::getppid()) + "/cwd";
  withRightsOf(54321, [&] {
    std::array<char, 16> target{};
    EXPECT_EQ(::readlink(parent.c_str(), target.data(), target.size()), -1);
    EXPECT_EQ(errno, EACCES);
  });
}

}  // namespace
}  // namespace molvane
