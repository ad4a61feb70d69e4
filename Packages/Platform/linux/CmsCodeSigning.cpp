#include "Platform/linux/CmsCodeSigning.hpp"

#include <exception>
#include <stdexcept>
#include <utility>

#include "Platform/linux/SignedCode.hpp"

namespace molvane {

namespace {

constexpr std::uint64_t kMaxAnchorSize = std::uint64_t{64} << 10U;

template <typename Check>
CodeVerdict verdictOf(Check check) {
  try {
    check();
    return {};
  } catch (const std::exception& error) {
    const std::string problem = error.what();
    return {problem.empty() ? "the check failed" : problem};
  }
}

}  // namespace

CmsCodeSigning::CmsCodeSigning(Options options)
    : options_(std::move(options)), remembered_(options_.rememberedFolder) {
  openssl::initialize();
}

PeerVerdict CmsCodeSigning::checkPeer(const FileDescriptor& socket, std::string_view requirement) {
  PeerVerdict verdict;
  static_cast<CodeVerdict&>(verdict) = verdictOf([&] {
    PeerProcess peer(socket);
    requirePeer(peer, requirement);
    verdict.process = std::move(peer).exitWatch();
  });
  return verdict;
}

CodeVerdict CmsCodeSigning::checkFile(const std::string& path, std::string_view requirement) {
  return verdictOf([&] { requireExecutable(openPlainFile(path, kMaxExecutableSize), requirement); });
}

void CmsCodeSigning::requirePeer(const PeerProcess& peer, std::string_view requirement) {
  const auto remembered = remembered_.find(peer.executableIdentity(), requirement);
  if (remembered && stillHolds(*remembered)) {
    peer.requireAlive();
    return;
  }

  const std::time_t begun = options_.now();
  const PlainFile executable = plainFile(peer.openExecutable(), kMaxExecutableSize);
  RememberedCheck passed = requireExecutable(executable, requirement);
  if (peer.executableIdentity() != executable.identity) {
    throw std::runtime_error("the peer's process began to run another file");
  }
  peer.requireAlive();
  if (isWorthRemembering(passed, begun)) remembered_.remember(std::move(passed));
}

// The digest of the executable comes last, so that only what is signed costs that much.
RememberedCheck CmsCodeSigning::requireExecutable(const PlainFile& executable, std::string_view requirement) {
  ++fullChecks_;
  const CodeRequirement wanted(requirement);
  const std::string signaturePath = currentPath(executable).append(kSignatureSuffix);
  const PlainFile signature = openPlainFile(signaturePath, kMaxSignatureSize);
  const auto root = installedRoot();
  const VerifiedCode verified = verifyCodeSignature(readAll(signature), root->anchors, options_.now());
  for (const CodeFacts& signer : verified.signers) {
    const std::string clause = wanted.unsatisfiedClause(signer);
    if (!clause.empty()) throw std::runtime_error("the code does not satisfy: " + clause);
  }
  if (hexText(sha256(executable)) != verified.code.sha256) {
    throw std::runtime_error("the code is not what was signed");
  }
  return {executable.identity, std::string(requirement), signaturePath,      signature.identity,
          root->identity,      verified.validFrom,       verified.validUntil};
}

bool CmsCodeSigning::stillHolds(const RememberedCheck& check) const {
  const std::time_t now = options_.now();
  return now >= check.validFrom && now < check.validUntil &&
         isUnchanged(check.signaturePath, check.signature) && isUnchanged(options_.anchorPath, check.anchor);
}

bool CmsCodeSigning::isWorthRemembering(const RememberedCheck& check, std::time_t begun) const {
  return isSettled(check.executable, begun) && isSettled(check.signature, begun) &&
         isSettled(check.anchor, begun);
}

std::shared_ptr<const CmsCodeSigning::InstalledRoot> CmsCodeSigning::installedRoot() {
  const std::time_t begun = options_.now();
  std::shared_ptr<const InstalledRoot> known;
  {
    const MutexLock lock(mutex_);
    known = root_;
  }
  if (known && isUnchanged(options_.anchorPath, known->identity)) return known;

  const PlainFile file = openTrustedFile(options_.anchorPath, options_.anchorOwner, kMaxAnchorSize);
  auto read =
      std::make_shared<const InstalledRoot>(InstalledRoot{TrustAnchors(readAll(file)), file.identity});
  if (isSettled(read->identity, begun)) {
    const MutexLock lock(mutex_);
    root_ = read;
  }
  return read;
}

}  // namespace molvane
