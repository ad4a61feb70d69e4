#include "Platform/linux/OpenSsl.hpp"

#include <openssl/crypto.h>

namespace molvane::openssl {

void initialize() noexcept {
  // No clean-up at exit: it would run while connection threads may still be inside the library.
  OPENSSL_init_crypto(
      OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_NO_ATEXIT, nullptr);
}

}  // namespace molvane::openssl
