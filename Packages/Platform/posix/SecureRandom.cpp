#include "Platform/SecureRandom.hpp"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>

#include "Base/NSError.hpp"

namespace molvane {

std::vector<std::uint8_t> secureRandomBytes(std::size_t count) {
  constexpr std::size_t kMostAtOnce = 256;  // getentropy gives no more
  std::vector<std::uint8_t> bytes(count);
  for (std::size_t filled = 0; filled < count;) {
    const std::size_t wanted = std::min(count - filled, kMostAtOnce);
    if (::getentropy(bytes.data() + filled, wanted) != 0) throwErrno("getentropy");
    filled += wanted;
  }
  return bytes;
}

}  // namespace molvane
