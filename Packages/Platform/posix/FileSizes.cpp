#include "Platform/posix/FileSizes.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <system_error>
#include <utility>

#include "Platform/Log.hpp"

namespace molvane {
namespace {

// A helper is a new thread each time, so it gets enough to do; the folders that wait with their files are few
// enough to stay open.
constexpr std::size_t kFilesForHelper = 256;
constexpr std::size_t kMostFoldersWaiting = 32;
constexpr std::size_t kMostHelpers = 3;

bool isReady(const std::future<std::int64_t>& helper) {
  return helper.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

}  // namespace

std::int64_t addSizes(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  if (__builtin_add_overflow(a, b, &sum)) fatalError("a folder's size does not fit into 64 bits");
  return sum;
}

void FolderFiles::add(const TreeEntry& file) {
  files_.push_back({file.inode, names_.size()});
  names_.append(file.name).push_back('\0');
}

std::int64_t FolderFiles::totalSize(int folder) {
  std::sort(files_.begin(), files_.end(), [](const File& a, const File& b) { return a.inode < b.inode; });
  std::int64_t total = 0;
  for (const File& file : files_) {
    struct stat status {};
    const char* const name = names_.c_str() + file.name;
    if (fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode)) {
      total = addSizes(total, status.st_size);
    }
  }
  return total;
}

void FileSizes::add(int folder, FolderFiles files) {
  if (files.count() == 0) return;
  // A descriptor of its own, because the walk goes on and closes the folder.
  FileDescriptor held(fcntl(folder, F_DUPFD_CLOEXEC, 0));
  if (!held) {
    total_ = addSizes(total_, files.totalSize(folder));
    return;
  }
  filesWaiting_ += files.count();
  waiting_.push_back({std::move(held), std::move(files)});
  if (filesWaiting_ >= kFilesForHelper || waiting_.size() >= kMostFoldersWaiting) dispatch();
}

std::int64_t FileSizes::total() {
  dispatch();
  for (auto& helper : helpers_) total_ = addSizes(total_, helper.get());
  helpers_.clear();
  return total_;
}

std::int64_t FileSizes::measure(std::vector<Batch> batches) {
  std::int64_t total = 0;
  for (Batch& batch : batches) total = addSizes(total, batch.files.totalSize(batch.folder.get()));
  return total;
}

void FileSizes::dispatch() {
  if (!giveToHelper()) total_ = addSizes(total_, measure(std::exchange(waiting_, {})));
  waiting_.clear();
  filesWaiting_ = 0;
}

// False when what waits is too little, or no helper is to be had.
bool FileSizes::giveToHelper() {
  if (filesWaiting_ < kFilesForHelper) return false;
  for (auto helper = helpers_.begin(); helper != helpers_.end();) {
    if (!isReady(*helper)) {
      ++helper;
      continue;
    }
    total_ = addSizes(total_, helper->get());
    helper = helpers_.erase(helper);
  }
  if (helpers_.size() >= kMostHelpers) return false;
  // Shared, because a thread that is not to be had would take its argument with it.
  const auto batches = std::make_shared<std::vector<Batch>>(std::move(waiting_));
  try {
    helpers_.push_back(std::async(std::launch::async, [batches] { return measure(std::move(*batches)); }));
    return true;
  } catch (const std::system_error&) {
    waiting_ = std::move(*batches);
    return false;
  }
}

}  // namespace molvane
