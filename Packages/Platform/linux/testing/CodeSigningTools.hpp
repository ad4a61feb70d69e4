#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/ChildProcess.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/linux/CmsCodeSigning.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane::testing {

/// What the app must satisfy when its team is the development authority's.
inline constexpr std::string_view kAppRequirement =
    "anchor apple generic and identifier \"com.molvane.app\" and certificate "
    "1[field.1.2.840.113635.100.6.2.6] and "
    "certificate leaf[field.1.2.840.113635.100.6.1.13] and certificate leaf[subject.OU] = \"MOLVANEDEV\"";

/// Runs a tool to its end. Throws std::runtime_error with its output when it fails.
void run(const std::string& executable, const std::vector<std::string>& arguments);

/// A development authority, made once for the whole test program by the tree's own script.
class Authority {
 public:
  static const Authority& shared();

  /// Of what the authority consists of, such as "root.pem".
  [[nodiscard]] std::string path(const std::string& name) const {
    return folder_.path() + "/authority/" + name;
  }

  /// Signs with the tree's own script.
  void sign(const std::string& executable, const std::string& identifier = "com.molvane.app",
            const std::vector<std::string>& leaves = {"developer-id"}) const;

 private:
  Authority();
  TemporaryFolder folder_;
};

/// Executables to be signed, all of them SigningPeer but with bytes of their own, an installed root, and a
/// checker.
class SigningFolder {
 public:
  SigningFolder();

  [[nodiscard]] std::string path(const std::string& name) const { return folder_.path() + "/" + name; }
  [[nodiscard]] std::string anchor() const { return path("trust/anchor.pem"); }

  /// A new executable; `difference` stands behind its end.
  [[nodiscard]] std::string addExecutable(const std::string& name, std::string_view difference = "") const;
  /// A new executable, signed as the app.
  [[nodiscard]] std::string addApp(const std::string& name = "app", std::string_view difference = "") const;

  /// A checker that trusts anchor(), remembers its checks for the next checker and whose clock runs `ahead`
  /// seconds before the real one.
  [[nodiscard]] std::unique_ptr<CmsCodeSigning> checker(std::function<std::time_t()> ahead = nullptr) const;

 private:
  TemporaryFolder folder_;
};

/// A process that runs an executable of a SigningFolder and has connected to a socket.
class ConnectedPeer {
 public:
  explicit ConnectedPeer(const std::string& executable);

  /// This end of the connection.
  [[nodiscard]] const FileDescriptor& socket() const { return socket_; }

  /// Tells the process something and waits until whoever has the connection then is ready again.
  void tell(const std::string& command);

  /// Waits until the process has ended.
  void waitForExit();

 private:
  void waitUntilReady() const;

  TemporaryFolder folder_;
  FileDescriptor listener_;
  ChildProcess process_;
  FileDescriptor socket_;
};

}  // namespace molvane::testing
