#include "Platform/TreeSize.hpp"

#include <optional>
#include <system_error>
#include <utility>

#include "Platform/PackageTypes.hpp"
#include "Platform/posix/FileSizes.hpp"
#include "Platform/posix/TreeWalk.hpp"

namespace molvane {
namespace {

class Measurement {
 public:
  Measurement(FileDescriptor top, std::size_t limit) : walk_(std::move(top), false), left_(limit) {}

  std::int64_t total() {
    measureFolder();
    while (left_ > 0 && goOn()) {
    }
    return sizes_.total();
  }

 private:
  // Takes the next subfolder, or goes back up to where there is one; false at the end of the tree.
  bool goOn() {
    if (const std::optional<std::string> name = walk_.takeRemembered()) {
      if (walk_.enter(*name) == 0) measureFolder();
      return true;
    }
    if (walk_.depth() == 1) return false;
    walk_.leave();
    return true;
  }

  void measureFolder() {
    const bool isTop = walk_.depth() == 1;
    FolderFiles files;
    try {
      while (left_ > 0) {
        const std::optional<TreeEntry> entry = walk_.next();
        if (!entry) break;
        if (entry->name[0] == '.') continue;
        --left_;
        if (entry->type == EntryType::regular) files.add(*entry);
        if (entry->type == EntryType::directory && !isPackageName(entry->name)) walk_.remember(*entry);
      }
    } catch (const std::system_error&) {
      if (isTop) throw;
    }
    sizes_.add(walk_.folder(), std::move(files));
  }

  TreeWalk walk_;
  std::size_t left_;
  FileSizes sizes_;
};

}  // namespace

std::int64_t logicalSize(FileDescriptor folder, std::size_t limit) {
  return Measurement(std::move(folder), limit).total();
}

}  // namespace molvane
