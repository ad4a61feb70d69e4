#include "Platform/posix/SpawnHost.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <system_error>

#include "Base/NSError.hpp"

namespace molvane {

Pipe openPipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throwErrno("opening a pipe");
  FileDescriptor readEnd(ends[0]);
  FileDescriptor writeEnd(ends[1]);
  return {aboveStandardStreams(std::move(readEnd)), aboveStandardStreams(std::move(writeEnd))};
}

void closeOtherDescriptors(posix_spawn_file_actions_t& actions, posix_spawnattr_t& /*attributes*/) {
  const int code = ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  if (code != 0) throw std::system_error(code, std::generic_category(), "closing the other descriptors");
}

}  // namespace molvane
