#include "Platform/linux/SignedCode.hpp"

#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <cstddef>

#include "Base/Ascii.hpp"
#include "Base/Json.hpp"

namespace molvane {

namespace {

constexpr std::size_t kMaxContent = 1024;
constexpr std::size_t kMaxIdentifier = 255;
constexpr std::size_t kDigestDigits = 64;

JsonValue parsedContent(std::string_view json) {
  try {
    return parseJson(json);
  } catch (const DecodingError&) {
    throw CmsError("a signature with unreadable content");
  }
}

const std::string* textOf(const JsonValue& document, std::string_view key) {
  const JsonValue* member = document.find(key);
  return member == nullptr ? nullptr : member->as<std::string>();
}

std::vector<std::string> subjectTexts(const X509_NAME* subject, int nid) {
  std::vector<std::string> texts;
  for (int i = X509_NAME_get_index_by_NID(subject, nid, -1); i >= 0;
       i = X509_NAME_get_index_by_NID(subject, nid, i)) {
    unsigned char* utf8 = nullptr;
    const int size = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, i)));
    if (size < 0) throw CmsError("a certificate whose subject is not text");
    texts.emplace_back(reinterpret_cast<const char*>(utf8), static_cast<std::size_t>(size));
    OPENSSL_free(utf8);
  }
  return texts;
}

std::vector<std::string> extensionsOf(const X509* certificate) {
  std::vector<std::string> identifiers;
  for (int i = 0; i < X509_get_ext_count(certificate); ++i) {
    std::array<char, 128> text{};
    const ASN1_OBJECT* identifier = X509_EXTENSION_get_object(X509_get_ext(certificate, i));
    constexpr int kDotted = 1;
    const int size = OBJ_obj2txt(text.data(), static_cast<int>(text.size()), identifier, kDotted);
    // An identifier too long for the buffer cannot be one that a requirement names.
    if (size > 0 && static_cast<std::size_t>(size) < text.size()) identifiers.emplace_back(text.data());
  }
  return identifiers;
}

CertificateFacts factsOf(const X509* certificate) {
  const X509_NAME* subject = X509_get_subject_name(certificate);
  return {subjectTexts(subject, NID_commonName), subjectTexts(subject, NID_organizationName),
          subjectTexts(subject, NID_organizationalUnitName), extensionsOf(certificate)};
}

void requireSigningUse(X509* leaf) {
  // Both functions answer with all bits set for a certificate that does not restrict itself.
  if ((X509_get_key_usage(leaf) & KU_DIGITAL_SIGNATURE) == 0 ||
      (X509_get_extended_key_usage(leaf) & XKU_CODE_SIGN) == 0) {
    throw CmsError("the signer's certificate is not for signing code");
  }
}

CodeFacts factsOf(const STACK_OF(X509) * chain, const std::string& identifier) {
  CodeFacts facts{identifier, {}};
  for (int i = 0; i < sk_X509_num(chain); ++i) facts.chain.push_back(factsOf(sk_X509_value(chain, i)));
  return facts;
}

}  // namespace

SignedCode parseSignedCode(std::string_view json) {
  if (json.size() > kMaxContent) throw CmsError("a signature with too much content");
  const JsonValue document = parsedContent(json);
  // Exactly two members, and both names found: no extras, no repeats.
  const auto* members = document.as<JsonValue::Object>();
  const std::string* identifier = textOf(document, "identifier");
  const std::string* sha256 = textOf(document, "sha256");
  if (members == nullptr || members->size() != 2 || identifier == nullptr || sha256 == nullptr) {
    throw CmsError("a signature with other content than an identifier and a digest");
  }
  if (identifier->empty() || identifier->size() > kMaxIdentifier || sha256->size() != kDigestDigits ||
      !std::all_of(sha256->begin(), sha256->end(), isLowercaseHexDigit)) {
    throw CmsError("a signature with an identifier or digest out of form");
  }
  return {*identifier, *sha256};
}

VerifiedCode verifyCodeSignature(std::string_view der, const TrustAnchors& anchors, std::time_t now) {
  const VerifiedCms cms = verifyCms(der, anchors, now);
  if (cms.contentType != NID_pkcs7_data) throw CmsError("a signature over something else than plain content");
  VerifiedCode verified{parseSignedCode(cms.content), {}, cms.validFrom, cms.validUntil};
  for (const openssl::CertificateStackPtr& chain : cms.signers) {
    requireSigningUse(sk_X509_value(chain.get(), 0));
    verified.signers.push_back(factsOf(chain.get(), verified.code.identifier));
  }
  return verified;
}

}  // namespace molvane
