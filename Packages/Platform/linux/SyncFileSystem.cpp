#include <unistd.h>

#include "Base/NSError.hpp"
#include "Platform/FileCopy.hpp"

namespace molvane {

void syncFileSystem(const FileDescriptor& item) {
  if (syncfs(item.get()) != 0) throwErrno("sync a file system");
}

}  // namespace molvane
