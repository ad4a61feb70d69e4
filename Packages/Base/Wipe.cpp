#include "Base/Wipe.hpp"

#include <algorithm>
#include <cstring>

namespace molvane {

namespace {

// Through a pointer that may change, so that the compiler cannot leave the call out.
void* (*const volatile overwrite)(void*, int, std::size_t) = std::memset;

}  // namespace

void wipe(std::string& secret) noexcept {
  // All of the buffer: a text that became shorter leaves its end behind. Growing to the capacity cannot
  // throw.
  secret.resize(secret.capacity());
  overwrite(secret.data(), 0, secret.size());
  secret.clear();
}

void appendWiping(std::string& secret, std::string_view more) {
  const std::size_t size = secret.size() + more.size();
  if (size > secret.capacity()) {
    std::string larger;
    larger.reserve(std::max(size, 2 * secret.capacity()));
    larger += secret;
    secret.swap(larger);
    wipe(larger);
  }
  secret += more;
}

}  // namespace molvane
