#include "HelperProtocol/dbus/SocketListener.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>

#include "HelperProtocol/testing/RawPeer.hpp"
#include "HelperProtocol/testing/ServedHelper.hpp"
#include "HelperProtocol/testing/WireBytes.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane::dbus {
namespace {

using testing::RawPeer;
using testing::ServedHelper;

int errnoOfBinding(const std::string& path) {
  try {
    const ListeningSocket socket{path};
    return 0;
  } catch (const std::system_error& error) {
    return error.code().value();
  }
}

class ListeningSocketTest : public ::testing::Test {
 protected:
  TemporaryFolder folder_;
  std::string path_ = folder_.path() + "/s";
};

TEST_F(ListeningSocketTest, BindsForOwnerAndGroupAndCleansUp) {
  {
    const ListeningSocket socket{path_};
    struct stat status {};
    ASSERT_EQ(::lstat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFSOCK | 0660U);
    EXPECT_EQ(errnoOfBinding(path_), EADDRINUSE);
    EXPECT_NO_THROW(static_cast<void>(connectTo(path_, std::chrono::seconds(1))));
  }
  EXPECT_EQ(::access(path_.c_str(), F_OK), -1);
}

TEST_F(ListeningSocketTest, ReplacesADeadSocketAndNothingElse) {
  {
    const FileDescriptor dead = unixSocket();
    bindTo(dead, path_);
  }
  {
    const ListeningSocket first{path_};
    EXPECT_NO_THROW(static_cast<void>(connectTo(path_, std::chrono::seconds(1))));
    // What has taken the name meanwhile is not ours to remove.
    ASSERT_EQ(::unlink(path_.c_str()), 0);
    std::ofstream(path_) << "x";
  }
  EXPECT_EQ(::access(path_.c_str(), F_OK), 0);
  EXPECT_EQ(errnoOfBinding(path_), EEXIST);
  EXPECT_EQ(errnoOfBinding(folder_.path() + "/none/s"), ENOENT);
  EXPECT_EQ(errnoOfBinding(folder_.path() + std::string(200, 'x')), ENAMETOOLONG);
}

/// Runs `child` with `passed` as descriptor 3 and the variables of socket activation, and ends with its
/// answer.
template <typename Child>
[[noreturn]] void activated(const FileDescriptor& passed, const char* count, pid_t pidOffset, Child&& child) {
  if (passed.get() != 3) ::dup2(passed.get(), 3);
  ::setenv("LISTEN_PID", std::to_string(::getpid() + pidOffset).c_str(), 1);
  ::setenv("LISTEN_FDS", count, 1);
  ::setenv("LISTEN_FDNAMES", "x", 1);
  std::_Exit(child());
}

TEST_F(ListeningSocketTest, TakesTheSocketThatTheServiceManagerPasses) {
  const ListeningSocket listening{path_};
  const FileDescriptor other = unixSocket();
  EXPECT_EXIT(activated(listening.descriptor(), "1", 0,
                        [] {
                          auto socket = activationSocket();
                          if (!socket || socket->get() != 3) return 1;
                          if (::fcntl(3, F_GETFD) != FD_CLOEXEC) return 2;
                          if (std::getenv("LISTEN_FDS") != nullptr || activationSocket()) return 3;
                          const ListeningSocket taken(std::move(*socket));
                          return 0;
                        }),
              ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(activated(listening.descriptor(), "1", 1, [] { return activationSocket() ? 1 : 0; }),
              ::testing::ExitedWithCode(0), "");
  const auto throwsEinval = [] {
    try {
      const ListeningSocket taken(activationSocket().value());
    } catch (const std::system_error& error) {
      return error.code().value() == EINVAL ? 0 : 2;
    }
    return 1;
  };
  EXPECT_EXIT(activated(listening.descriptor(), "2", 0, throwsEinval), ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(activated(other, "1", 0, throwsEinval), ::testing::ExitedWithCode(0), "");
}

TEST(SocketListenerTest, WithoutAThreadAConnectionEndsAtOnce) {
  Limits limits;
  limits.threadStack = std::size_t{1} << 60U;
  ServedHelper served({.limits = limits});
  EXPECT_TRUE(RawPeer(served.socketPath()).isLeft());
  EXPECT_TRUE(served.waitForInvalidations(1));
  EXPECT_EQ(served.resumed(), 1);
}

TEST(SocketListenerTest, WaitsOutALackOfDescriptors) {
  ServedHelper served;
  RawPeer other(served.socketPath());
  ASSERT_TRUE(other.shakeHands());
  // The first call is made while there are descriptors: sanitizers take some for their own checks of it.
  ASSERT_TRUE(other.send(testing::WireMessage{}.bytes()) && other.receive());
  FileDescriptor client = unixSocket();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  served.socketPath().copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);

  rlimit usual{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
  rlimit none = usual;
  none.rlim_cur = STDERR_FILENO + 1;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const int connected = ::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  // Meanwhile the others are served, long enough for the listener to find that it can take nobody.
  int answered = 0;
  while (answered < 1'000 && other.send(testing::WireMessage{}.bytes()) && other.receive()) ++answered;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);

  ASSERT_EQ(connected, 0);
  EXPECT_EQ(answered, 1'000);
  EXPECT_TRUE(RawPeer(std::move(client)).shakeHands());
}

TEST(SocketListenerTest, SuspendedItServesWhomItHasAndLetsOthersWait) {
  ServedHelper served;
  RawPeer before(served.socketPath());
  ASSERT_TRUE(before.shakeHands());
  served.listener().suspend();
  served.listener().suspend();
  RawPeer waiting(served.socketPath());
  ASSERT_TRUE(before.send(testing::WireMessage{}.bytes()) && before.receive());
  EXPECT_EQ(served.resumed(), 1);
  served.listener().resume();
  EXPECT_TRUE(waiting.shakeHands());
  ASSERT_TRUE(before.send(testing::WireMessage{}.bytes()) && before.receive());
}

/// Accepts as it was told, in ways in which a delegate must not.
class OddDelegate final : public ListenerDelegate {
 public:
  bool shouldAcceptNewConnection(PeerConnection& connection) override {
    uid = connection.effectiveUserIdentifier();
    connection.setInvalidationHandler([this] { ++invalidations; });
    switch (++offers) {
      case 1:
        connection.resume();
        return false;
      case 2:
        return true;
      case 3:
        connection.resume();
        throw std::runtime_error("odd");
      default:
        return false;
    }
  }

  std::atomic<std::uint32_t> uid = 0;
  std::atomic<int> offers = 0;
  std::atomic<int> invalidations = 0;
};

TEST(SocketListenerTest, InvalidatesOnceWhateverTheDelegateDoes) {
  const TemporaryFolder folder;
  testing::FakeCodeSigning codeSigning{""};
  OddDelegate delegate;
  SocketListener listener(ListeningSocket(folder.path() + "/s"), codeSigning);
  EXPECT_THROW(listener.resume(), std::logic_error);
  listener.setDelegate(delegate);
  listener.resume();
  for (const int invalidations : {1, 1, 2, 2}) {
    EXPECT_TRUE(RawPeer(folder.path() + "/s").isLeft());
    EXPECT_EQ(delegate.invalidations, invalidations);
  }
  EXPECT_EQ(delegate.uid, ::geteuid());
}

}  // namespace
}  // namespace molvane::dbus
