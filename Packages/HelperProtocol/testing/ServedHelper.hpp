#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Base/Mutex.hpp"
#include "HelperProtocol/dbus/SocketListener.hpp"
#include "HelperProtocol/dbus/WakeUp.hpp"
#include "HelperProtocol/testing/RecordingHelper.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane::testing {

/// Says of every peer what it was told to, and that its process lives until endProcesses().
class FakeCodeSigning final : public CodeSigning {
 public:
  explicit FakeCodeSigning(std::string problem) : problem_(std::move(problem)) {}

  [[nodiscard]] PeerVerdict checkPeer(const FileDescriptor& socket, std::string_view requirement) override;
  [[nodiscard]] CodeVerdict checkFile(const std::string& /*path*/,
                                      std::string_view /*requirement*/) override {
    return {"no file is checked here"};
  }

  void endProcesses() { ended_.signal(); }

  static constexpr std::string_view kRequirement = "identifier \"com.example.client\"";

 private:
  std::string problem_;
  dbus::WakeUp ended_;
};

/// A RecordingHelper behind a listener on a socket in a temporary folder, gone with the object.
class ServedHelper : private ListenerDelegate {
 public:
  struct Options {
    dbus::Limits limits = {};
    dbus::SocketListener::PeerUID peerUID = dbus::peerUserIdentifier;
    std::string codeProblem = {};  ///< what is wrong with every peer's code
    bool accepts = true;           ///< whether the delegate accepts peers
    bool setsRequirement = true;
  };

  ServedHelper() : ServedHelper(Options{}) {}
  explicit ServedHelper(Options options);
  ~ServedHelper() override;

  [[nodiscard]] const std::string& socketPath() const { return socketPath_; }
  [[nodiscard]] RecordingHelper& helper() { return *helper_; }

  /// How many connections were resumed so far, and how many of them have been invalidated.
  [[nodiscard]] int resumed();
  [[nodiscard]] int invalidated();

  /// Waits until `count` connections have been invalidated; false when that takes absurdly long.
  [[nodiscard]] bool waitForInvalidations(int count);

  [[nodiscard]] dbus::SocketListener& listener() { return *listener_; }

  /// From now on the processes of all peers have ended, though their sockets live on.
  void endPeerProcesses() { codeSigning_.endProcesses(); }

  /// Ends the listener as the destructor would.
  void stop() { listener_.reset(); }

 private:
  bool shouldAcceptNewConnection(PeerConnection& connection) override;

  const Options options_;
  TemporaryFolder folder_;
  std::string socketPath_ = folder_.path() + "/helper.sock";
  std::shared_ptr<RecordingHelper> helper_ = std::make_shared<RecordingHelper>();
  FakeCodeSigning codeSigning_{options_.codeProblem};
  Mutex mutex_;
  Condition changed_;
  int resumed_ MOLVANE_GUARDED_BY(mutex_) = 0;
  int invalidated_ MOLVANE_GUARDED_BY(mutex_) = 0;
  std::unique_ptr<dbus::SocketListener> listener_;
};

}  // namespace molvane::testing
