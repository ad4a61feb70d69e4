#include "molvanectl/TextSink.hpp"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace molvane::ctl {

void DescriptorSink::write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor_, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      // Whoever shares the descriptor has made it non-blocking.
      pollfd ready{descriptor_, POLLOUT, 0};
      ::poll(&ready, 1, -1);
    } else if (errno != EINTR) {
      throw OutputError(errno, std::generic_category(), "write");
    }
  }
}

}  // namespace molvane::ctl
