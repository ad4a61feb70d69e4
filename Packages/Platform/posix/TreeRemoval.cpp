#include "Platform/TreeRemoval.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <future>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "Base/NSError.hpp"
#include "Platform/posix/TreeWalk.hpp"

namespace molvane {
namespace {

// How often a folder is read anew because something has appeared in it while it was emptied.
constexpr int kMostRounds = 64;

// Trees of fewer files are gone before a helper thread would pay.
constexpr std::size_t kFilesBeforeHelp = 256;

bool wasNotThere(int error) { return error == ENOENT; }
bool isNoFolder(int error) { return error == ENOTDIR || error == ELOOP; }
// Unlinking a folder is EISDIR on Linux and EPERM where POSIX is followed to the letter; EPERM is also what
// an immutable file answers.
bool mayBeFolder(int error) { return error == EISDIR || error == EPERM; }

int unlinkEntry(int folder, const char* name, int flags) {
  return unlinkat(folder, name, flags) == 0 ? 0 : errno;
}

[[noreturn]] void fail(int error, const std::string& name) {
  if (error == EXDEV || error == EBUSY) {
    throw ExplainedSystemError(error, "A volume is mounted on " + name + ". Unmount it first.");
  }
  errno = error;
  throwErrno("remove " + name);
}

bool isNotEmpty(int error) { return error == ENOTEMPTY || error == EEXIST; }

// Empties one tree, without recursion.
//
// Removing is mostly waiting for the file system, which serves two folders side by side. So a remover whose
// tree has turned out to be large gives a subfolder to a helper thread and goes on with the next one; when
// nothing else is left to do in a folder it takes back what the helper has not finished.
class TreeRemover {
 public:
  explicit TreeRemover(FileDescriptor top) : walk_(std::move(top), true) {}
  ~TreeRemover() { helperInterrupt_ = true; }
  TreeRemover(const TreeRemover&) = delete;
  TreeRemover& operator=(const TreeRemover&) = delete;

  // Empties the top folder, but for what appears in it while that goes on.
  void emptyTop() {
    removeFiles();
    run();
  }

  // Removes one subfolder of the top folder, on the helper thread. False when `interrupt` ended it early.
  bool removeSubfolder(const std::string& name, const std::atomic<bool>& interrupt) {
    interrupt_ = &interrupt;
    walk_.remember({name.c_str(), EntryType::directory, 0});
    return run();
  }

 private:
  // What the helper thread is at: a subfolder of the folder at that depth. The result is removeSubfolder's.
  struct Given {
    std::size_t depth;
    std::string name;
    std::future<bool> finished;
  };

  bool run();
  void removeFiles();
  void removeEmptied(const std::string& name) const;
  bool enter(const std::string& name);
  bool enterNext();
  bool enterTakenBack();
  bool give(const std::string& name);
  [[nodiscard]] bool isInterrupted() const { return interrupt_ != nullptr && *interrupt_; }

  TreeWalk walk_;
  std::size_t filesRemoved_ = 0;
  const std::atomic<bool>* interrupt_ = nullptr;  // only the helper has one
  std::atomic<bool> helperInterrupt_ = false;
  std::optional<Given> given_;  // last: its destructor waits for the helper
};

bool TreeRemover::run() {
  while (!isInterrupted()) {
    if (enterNext() || enterTakenBack()) {
      removeFiles();
    } else if (walk_.depth() == 1) {
      return true;
    } else {
      removeEmptied(walk_.leave());
    }
  }
  return false;
}

// Removes everything in the current folder but its subfolders, which the walk remembers.
void TreeRemover::removeFiles() {
  while (const std::optional<TreeEntry> entry = walk_.next()) {
    if (isInterrupted()) return;
    if (entry->type == EntryType::directory) {
      walk_.remember(*entry);
      continue;
    }
    const int error = unlinkEntry(walk_.folder(), entry->name, 0);
    if (error == 0) {
      ++filesRemoved_;
    } else if (error == EISDIR) {
      walk_.remember(*entry);
    } else if (!wasNotThere(error)) {
      fail(error, entry->name);
    }
  }
}

// Removes a subfolder that was emptied. One that has filled up again, or whose place something else has
// taken, is left to the next round, which finds whatever it is then.
void TreeRemover::removeEmptied(const std::string& name) const {
  const int error = unlinkEntry(walk_.folder(), name.c_str(), AT_REMOVEDIR);
  if (error != 0 && !isNotEmpty(error) && !wasNotThere(error) && !isNoFolder(error)) fail(error, name);
}

// Goes down into the next remembered subfolder; false when there is none left.
bool TreeRemover::enterNext() {
  while (const std::optional<std::string> name = walk_.takeRemembered()) {
    if (give(*name)) continue;
    if (enter(*name)) return true;
  }
  return false;
}

bool TreeRemover::enter(const std::string& name) {
  const int error = walk_.enter(name);
  if (error == 0) return true;
  if (isNoFolder(error)) {
    // By now it may be a folder again; then the next round takes it.
    const int unlinked = unlinkEntry(walk_.folder(), name.c_str(), 0);
    if (unlinked != 0 && !wasNotThere(unlinked) && !mayBeFolder(unlinked)) fail(unlinked, name);
  } else if (!wasNotThere(error)) {
    fail(error, name);
  }
  return false;
}

// Ends the helper's work when it is in a subfolder of the current folder, and goes down into what it has
// left; false when there is nothing of the kind. Entered here and not given away again, so that each taking
// back gets ahead.
bool TreeRemover::enterTakenBack() {
  if (!given_ || given_->depth != walk_.depth()) return false;
  helperInterrupt_ = true;
  Given given = *std::exchange(given_, std::nullopt);
  return !given.finished.get() && enter(given.name);
}

// Gives a subfolder of the current folder to the helper; false when it is busy, not wanted or not to be had.
bool TreeRemover::give(const std::string& name) {
  if (interrupt_ != nullptr || filesRemoved_ < kFilesBeforeHelp) return false;
  if (given_) {
    if (given_->finished.wait_for(std::chrono::seconds(0)) != std::future_status::ready) return false;
    std::exchange(given_, std::nullopt)->finished.get();
  }
  FileDescriptor folder(openat(walk_.folder(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return false;
  helperInterrupt_ = false;
  const auto work = [this, name](FileDescriptor top) {
    return TreeRemover(std::move(top)).removeSubfolder(name, helperInterrupt_);
  };
  try {
    given_ = Given{walk_.depth(), name, std::async(std::launch::async, work, std::move(folder))};
  } catch (const std::system_error&) {
    return false;  // no thread to be had
  }
  return true;
}

}  // namespace

void removeItem(const HeldItem& item) {
  const int notUnlinked = unlinkEntry(item.folder.get(), item.name.c_str(), 0);
  if (notUnlinked == 0) return;
  if (!mayBeFolder(notUnlinked)) fail(notUnlinked, item.name);

  for (int round = 0; round < kMostRounds; ++round) {
    FileDescriptor top = openSubfolder(item.folder.get(), item.name.c_str(), true);
    if (!top) fail(isNoFolder(errno) ? notUnlinked : errno == EXDEV ? EBUSY : errno, item.name);
    TreeRemover(std::move(top)).emptyTop();
    const int error = unlinkEntry(item.folder.get(), item.name.c_str(), AT_REMOVEDIR);
    if (error == 0) return;
    if (!isNotEmpty(error)) fail(error, item.name);
  }
  fail(ENOTEMPTY, item.name);
}

}  // namespace molvane
