#pragma once

#include <ctime>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/linux/OpenSsl.hpp"

namespace molvane {

/// Why a message or a set of trust anchors was refused.
class CmsError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The roots at which a chain of certificates may end. Immutable, so that threads can share it.
class TrustAnchors {
 public:
  /// Reads the certificates of a PEM text. Throws CmsError when it holds none, too many or a broken one.
  explicit TrustAnchors(std::string_view pem);

  [[nodiscard]] X509_STORE* store() const noexcept { return store_.get(); }

 private:
  openssl::StorePtr store_;
};

/// A signed message (CMS SignedData) whose every signature holds.
struct VerifiedCms {
  std::string content;
  int contentType = 0;                                ///< the library's number (NID) for what the content is
  std::vector<openssl::CertificateStackPtr> signers;  ///< one chain a signer, from leaf to root; at least one
  std::time_t validFrom = 0;                          ///< when the youngest certificate became valid
  std::time_t validUntil = 0;                         ///< when the first certificate runs out
};

/// Verifies `der`: one or more signers, all of them good, each with a chain of certificates that are valid at
/// `now` and end at one of `anchors`. Intermediate certificates come from the message alone. Digests other
/// than SHA-256, SHA-384 and SHA-512 are refused, and so are certificates below 112 bits of security. What a
/// certificate may be used for and revocation are not looked at.
///
/// `detachedContent` is what was signed when the message does not carry it; a message that does must not be
/// given any. Bytes behind the message are refused. Throws CmsError.
[[nodiscard]] VerifiedCms verifyCms(std::string_view der, const TrustAnchors& anchors, std::time_t now,
                                    std::optional<std::string_view> detachedContent = std::nullopt);

}  // namespace molvane
