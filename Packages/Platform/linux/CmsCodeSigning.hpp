#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Base/Mutex.hpp"
#include "Platform/CodeRequirement.hpp"
#include "Platform/CodeSigning.hpp"
#include "Platform/linux/CmsMessage.hpp"
#include "Platform/linux/PeerProcess.hpp"
#include "Platform/linux/PlainFile.hpp"
#include "Platform/linux/RememberedChecks.hpp"

namespace molvane {

/// Code signing with a signature file beside the executable, `<executable>.codesig`: a CMS message in DER
/// whose content names the code's identifier and SHA-256 (see verifyCodeSignature), made by one or more
/// signers whose chains end at the installed root. Each of the signers must satisfy the requirement.
///
/// A peer's executable is the file that the process is running when it is checked, which the kernel does not
/// let anybody write to meanwhile; a process may run another one right afterwards, and code that was loaded
/// into it besides, such as a library, is not looked at. That a peer was allowed to connect at all must
/// therefore be settled elsewhere. Revocation is not looked at either. A file system that its user serves can
/// make a check of that user's own code take as long as he likes.
///
/// A check that a peer passed is remembered until the executable, the signature file or the root is changed
/// or a certificate runs out; in a file, if Options name one, beyond the process. What checkFile finds is
/// never remembered, because a file that does not run can be written to without a trace.
class CmsCodeSigning : public CodeSigning {
 public:
  static constexpr std::string_view kSignatureSuffix = ".codesig";
  static constexpr std::uint64_t kMaxExecutableSize = std::uint64_t{512} << 20U;  ///< bytes
  static constexpr std::uint64_t kMaxSignatureSize = std::uint64_t{64} << 10U;    ///< bytes

  struct Options {
    std::string anchorPath;        ///< the root's certificate in PEM, as openTrustedFile wants it
    uid_t anchorOwner = 0;         ///< who besides root may own the root's certificate
    std::string rememberedFolder;  ///< where RememberedChecks keep their file; none: nowhere
    std::function<std::time_t()> now = [] { return std::time(nullptr); };
  };

  /// Reads no more than the remembered checks: a missing root makes every check fail, and the next check
  /// looks for it again.
  explicit CmsCodeSigning(Options options);

  [[nodiscard]] PeerVerdict checkPeer(const FileDescriptor& socket, std::string_view requirement) override;
  [[nodiscard]] CodeVerdict checkFile(const std::string& path, std::string_view requirement) override;

  /// How many checks have been carried out in full rather than remembered.
  [[nodiscard]] std::uint64_t fullChecks() const noexcept { return fullChecks_; }

 private:
  struct InstalledRoot {
    TrustAnchors anchors;
    FileIdentity identity;
  };

  void requirePeer(const PeerProcess& peer, std::string_view requirement);
  RememberedCheck requireExecutable(const PlainFile& executable, std::string_view requirement);
  bool stillHolds(const RememberedCheck& check) const;
  bool isWorthRemembering(const RememberedCheck& check, std::time_t begun) const;
  std::shared_ptr<const InstalledRoot> installedRoot();

  const Options options_;
  RememberedChecks remembered_;
  std::atomic<std::uint64_t> fullChecks_ = 0;
  Mutex mutex_;
  std::shared_ptr<const InstalledRoot> root_ MOLVANE_GUARDED_BY(mutex_);
};

}  // namespace molvane
