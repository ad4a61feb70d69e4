#include "molvanectl/StandardDescriptors.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace molvane::ctl {

void occupyStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(descriptor, F_GETFD) != -1) continue;
    // The wrong direction on purpose: whoever uses it gets the error that a closed descriptor gives. The
    // lowest free number is taken, which is this one.
    if (::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY) != descriptor) ::_exit(1);
  }
}

}  // namespace molvane::ctl
