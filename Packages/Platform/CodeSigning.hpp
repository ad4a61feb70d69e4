#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// Why code does not satisfy a requirement, in words for the log; empty when it does.
struct CodeVerdict {
  std::string problem;

  [[nodiscard]] bool satisfied() const { return problem.empty(); }
};

/// The same about a peer.
struct PeerVerdict : CodeVerdict {
  /// Can be read as soon as the process that was checked has ended. It is there when the verdict is good.
  FileDescriptor process;
};

/// Checks whether code satisfies a code-signing requirement. The host's answer to the platform's static-code
/// and peer checks; any thread may call it.
class CodeSigning {
 public:
  virtual ~CodeSigning() = default;

  /// Whether the code of the process at the other end of `socket` satisfies `requirement` (the platform's
  /// requirement language). The process is the one that connected, pinned by the kernel, and its code is what
  /// it runs now. Anything that cannot be read, parsed or verified is a problem, never an exception. May take
  /// as long as reading the whole executable does.
  [[nodiscard]] virtual PeerVerdict checkPeer(const FileDescriptor& socket, std::string_view requirement) = 0;

  /// The same for the code in the file at `path`.
  [[nodiscard]] virtual CodeVerdict checkFile(const std::string& path, std::string_view requirement) = 0;
};

/// The host's own checker, with the trust that an installation lays down. Make it before anything else in the
/// process computes a digest: it also prepares the cryptography library.
[[nodiscard]] std::unique_ptr<CodeSigning> makeCodeSigning();

}  // namespace molvane
