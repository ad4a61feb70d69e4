#include "Platform/GrantingAttributes.hpp"

#include <sys/xattr.h>

#include <cerrno>
#include <string>

#include "Base/NSError.hpp"

namespace molvane {

void removeGrantingAttributes(const FileDescriptor& item) {
  for (const char* name : {"security.capability", "system.posix_acl_access", "system.posix_acl_default"}) {
    if (fremovexattr(item.get(), name) != 0 && errno != ENODATA && errno != ENOTSUP) {
      throwErrno(std::string("remove ") + name);
    }
  }
}

}  // namespace molvane
