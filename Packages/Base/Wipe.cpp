#include "Base/Wipe.hpp"

#include <openssl/crypto.h>

namespace molvane {

void wipe(std::string& secret) noexcept {
  // All of the buffer: a text that became shorter leaves its end behind. Growing to the capacity cannot
  // throw.
  secret.resize(secret.capacity());
  OPENSSL_cleanse(secret.data(), secret.size());
  secret.clear();
}

}  // namespace molvane
