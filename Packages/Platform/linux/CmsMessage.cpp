#include "Platform/linux/CmsMessage.hpp"

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <limits>

#include "Base/Bytes.hpp"

namespace molvane {

namespace {

using namespace openssl;

constexpr int kMaxSigners = 8;
constexpr int kMaxCertificates = 32;
constexpr int kMaxAnchors = 16;
constexpr int kMaxIntermediates = 6;
constexpr int kSecurityLevel = 2;  // the library's name for 112 bits: RSA from 2048, no SHA-1 in certificates

[[noreturn]] void refuse(const std::string& why) { throw CmsError(why); }

// The library leaves the reasons of every failure in a queue of the thread; nobody reads it.
struct ErrorQueueCleaner {
  ErrorQueueCleaner() = default;
  ErrorQueueCleaner(const ErrorQueueCleaner&) = delete;
  ErrorQueueCleaner& operator=(const ErrorQueueCleaner&) = delete;
  ~ErrorQueueCleaner() { ERR_clear_error(); }
};

BioPtr readerOf(std::string_view bytes) {
  if (bytes.size() > INT_MAX) refuse("more bytes than the library can take");
  return made(BioPtr(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size()))));
}

CmsPtr parse(std::string_view der) {
  if (der.size() > LONG_MAX) refuse("more bytes than the library can take");
  const unsigned char* position = asBytes(der).data();
  const unsigned char* end = position + der.size();
  CmsPtr message(d2i_CMS_ContentInfo(nullptr, &position, static_cast<long>(der.size())));
  if (!message) refuse("not a CMS message");
  if (position != end) refuse("bytes after the CMS message");
  if (OBJ_obj2nid(CMS_get0_type(message.get())) != NID_pkcs7_signed) refuse("not a signed message");
  return message;
}

// The algorithms that may make the digest over the content or the signed attributes.
bool isStrongDigest(int nid) { return nid == NID_sha256 || nid == NID_sha384 || nid == NID_sha512; }

void checkAlgorithms(CMS_SignerInfo* signer) {
  X509_ALGOR* digest = nullptr;
  X509_ALGOR* signature = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, &signature);
  const int digestId = OBJ_obj2nid(digest->algorithm);
  if (!isStrongDigest(digestId)) refuse("a digest algorithm that is not accepted");

  // An identifier such as sha1WithRSAEncryption names a digest of its own, which must not be another one.
  int namedDigest = NID_undef;
  if (OBJ_find_sigid_algs(OBJ_obj2nid(signature->algorithm), &namedDigest, nullptr) == 1 &&
      namedDigest != NID_undef && namedDigest != digestId) {
    refuse("a signature algorithm that contradicts the digest algorithm");
  }
}

std::time_t secondsOf(const ASN1_TIME* time) {
  std::tm parts{};
  if (ASN1_TIME_to_tm(time, &parts) != 1) refuse("a certificate with an unreadable date");
  // Not timegm, which would read the zone of the host.
  const std::chrono::sys_days day =
      std::chrono::year(parts.tm_year + 1900) / (parts.tm_mon + 1) / parts.tm_mday;
  const auto moment = day + std::chrono::hours(parts.tm_hour) + std::chrono::minutes(parts.tm_min) +
                      std::chrono::seconds(parts.tm_sec);
  return moment.time_since_epoch().count();
}

void narrowValidity(const STACK_OF(X509) * chain, VerifiedCms& verified) {
  for (int i = 0; i < sk_X509_num(chain); ++i) {
    const X509* certificate = sk_X509_value(chain, i);
    verified.validFrom = std::max(verified.validFrom, secondsOf(X509_get0_notBefore(certificate)));
    verified.validUntil = std::min(verified.validUntil, secondsOf(X509_get0_notAfter(certificate)));
  }
}

CertificateStackPtr verifyChain(X509* leaf, STACK_OF(X509) * untrusted, const TrustAnchors& anchors,
                                std::time_t now) {
  const StoreContextPtr context = made(StoreContextPtr(X509_STORE_CTX_new()));
  if (X509_STORE_CTX_init(context.get(), anchors.store(), leaf, untrusted) != 1) throw std::bad_alloc();
  X509_VERIFY_PARAM* parameters = X509_STORE_CTX_get0_param(context.get());
  X509_VERIFY_PARAM_set_purpose(parameters, X509_PURPOSE_ANY);
  X509_VERIFY_PARAM_set_depth(parameters, kMaxIntermediates);
  X509_VERIFY_PARAM_set_auth_level(parameters, kSecurityLevel);
  X509_VERIFY_PARAM_set_time(parameters, now);
  if (X509_verify_cert(context.get()) != 1) {
    refuse(std::string("the signer's certificate is not trusted: ") +
           X509_verify_cert_error_string(X509_STORE_CTX_get_error(context.get())));
  }
  return made(CertificateStackPtr(X509_STORE_CTX_get1_chain(context.get())));
}

// Certificates first: only keys that a trusted root vouches for get to check a signature.
void verifySigners(CMS_ContentInfo* message, const TrustAnchors& anchors, std::time_t now,
                   VerifiedCms& verified) {
  const CertificateStackPtr certificates(CMS_get1_certs(message));
  if (certificates && sk_X509_num(certificates.get()) > kMaxCertificates) refuse("too many certificates");
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(message);
  const int count = sk_CMS_SignerInfo_num(signers);
  if (count < 1) refuse("no signer");
  if (count > kMaxSigners) refuse("too many signers");
  if (CMS_set1_signers_certs(message, nullptr, 0) != count) refuse("a signer without a certificate");

  for (int i = 0; i < count; ++i) {
    CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(signers, i);
    checkAlgorithms(signer);
    X509* leaf = nullptr;
    CMS_SignerInfo_get0_algs(signer, nullptr, &leaf, nullptr, nullptr);
    verified.signers.push_back(verifyChain(leaf, certificates.get(), anchors, now));
    narrowValidity(verified.signers.back().get(), verified);
  }
}

std::string verifyContent(CMS_ContentInfo* message, std::optional<std::string_view> detachedContent) {
  const bool carriesContent = CMS_is_detached(message) != 1;
  if (carriesContent == detachedContent.has_value()) refuse("content that is missing, or there twice");
  const BioPtr input = detachedContent ? readerOf(*detachedContent) : nullptr;
  const BioPtr output = made(BioPtr(BIO_new(BIO_s_mem())));
  constexpr unsigned kChainsAreVerified = CMS_NO_SIGNER_CERT_VERIFY;
  if (CMS_verify(message, nullptr, nullptr, input.get(), output.get(), CMS_BINARY | kChainsAreVerified) !=
      1) {
    refuse("a signature that does not hold");
  }
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(output.get(), &bytes);
  return size > 0 ? std::string(bytes, static_cast<std::size_t>(size)) : std::string();
}

}  // namespace

TrustAnchors::TrustAnchors(std::string_view pem) {
  initialize();
  const ErrorQueueCleaner cleaner;
  store_ = made(StorePtr(X509_STORE_new()));
  const BioPtr reader = readerOf(pem);
  char noPassword[] = "";  // without one the library would ask the terminal for an encrypted text's
  int count = 0;
  while (const CertificatePtr anchor{PEM_read_bio_X509(reader.get(), nullptr, nullptr, noPassword)}) {
    if (++count > kMaxAnchors) refuse("too many trust anchors");
    // Reads the extensions now; the library would do it at the first use, when threads share the certificate.
    constexpr int kNoPurpose = -1;
    if (X509_check_purpose(anchor.get(), kNoPurpose, 0) != 1) refuse("a trust anchor that is not readable");
    if (X509_STORE_add_cert(store_.get(), anchor.get()) != 1) throw std::bad_alloc();
  }
  if (ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE)
    refuse("a trust anchor that is not readable");
  if (count == 0) refuse("no trust anchor");
}

VerifiedCms verifyCms(std::string_view der, const TrustAnchors& anchors, std::time_t now,
                      std::optional<std::string_view> detachedContent) {
  const ErrorQueueCleaner cleaner;
  const CmsPtr message = parse(der);
  VerifiedCms verified;
  verified.validUntil = std::numeric_limits<std::time_t>::max();
  verifySigners(message.get(), anchors, now, verified);
  verified.content = verifyContent(message.get(), detachedContent);
  verified.contentType = OBJ_obj2nid(CMS_get0_eContentType(message.get()));
  return verified;
}

}  // namespace molvane
