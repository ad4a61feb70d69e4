#pragma once

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <memory>
#include <new>

namespace molvane::openssl {

/// Calls the library's own function for giving an object back.
template <auto Free>
struct Deleter {
  template <typename T>
  void operator()(T* object) const noexcept {
    Free(object);
  }
};

struct CertificateStackDeleter {
  void operator()(STACK_OF(X509) * stack) const noexcept { sk_X509_pop_free(stack, X509_free); }
};

using BioPtr = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, Deleter<CMS_ContentInfo_free>>;
using CertificatePtr = std::unique_ptr<X509, Deleter<X509_free>>;
using CertificateStackPtr = std::unique_ptr<STACK_OF(X509), CertificateStackDeleter>;
using StorePtr = std::unique_ptr<X509_STORE, Deleter<X509_STORE_free>>;
using StoreContextPtr = std::unique_ptr<X509_STORE_CTX, Deleter<X509_STORE_CTX_free>>;

/// Prepares the library without its configuration file, which an environment variable could name, and without
/// its error texts, which nobody here reads. It has that effect only when nothing in the process has used the
/// library before. Any thread, any number of times.
void initialize() noexcept;

/// Hands on what the library made; throws std::bad_alloc when it made nothing.
template <typename Pointer>
[[nodiscard]] Pointer made(Pointer object) {
  if (!object) throw std::bad_alloc();
  return object;
}

}  // namespace molvane::openssl
