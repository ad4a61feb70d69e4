#pragma once

#include <openssl/x509.h>

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Sha256.hpp"
#include "Platform/CodeRequirement.hpp"
#include "Platform/linux/CmsMessage.hpp"

namespace molvane {

/// What a code signature says: which code it is, and its digest.
struct SignedCode {
  std::string identifier;
  std::string sha256;  ///< 64 lower-case hexadecimal digits

  bool operator==(const SignedCode&) const = default;
};

/// Reads the content of a code signature, `{"identifier": TEXT, "sha256": DIGITS}`. Both members must be
/// there once and nothing else; the identifier has 1 to 255 bytes. Throws CmsError.
[[nodiscard]] SignedCode parseSignedCode(std::string_view json);

/// A code signature that holds, as far as it can be told without the code's own bytes.
struct VerifiedCode {
  SignedCode code;
  std::vector<CodeFacts> signers;  ///< at least one; they share the identifier
  std::time_t validFrom = 0;
  std::time_t validUntil = 0;
};

/// Verifies a code signature: a CMS message that verifyCms accepts, with plain content that parseSignedCode
/// accepts. A signer's certificate that restricts its use must allow it to sign: digital signature in its key
/// usage, code signing in its extended key usage. Throws CmsError.
[[nodiscard]] VerifiedCode verifyCodeSignature(std::string_view der, const TrustAnchors& anchors,
                                               std::time_t now);

}  // namespace molvane
