#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/linux/CmsCodeSigning.hpp"
#include "Platform/linux/testing/CodeSigningTools.hpp"
#include "Platform/testing/ToolFolder.hpp"

namespace molvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

constexpr std::time_t kLongEnough = 10;  // for a file that was just written to count as settled

class CmsCodeSigningPeerTest : public ::testing::Test {
 protected:
  std::string problem(const ConnectedPeer& peer, std::string_view requirement = kAppRequirement) {
    return checker_->checkPeer(peer.socket(), requirement).problem;
  }

  SigningFolder folder_;
  std::atomic<std::time_t> ahead_ = kLongEnough;
  std::unique_ptr<CmsCodeSigning> checker_ = folder_.checker([this] { return ahead_.load(); });
};

TEST_F(CmsCodeSigningPeerTest, WhatThePeerRunsDecides) {
  EXPECT_EQ(problem(ConnectedPeer(folder_.addApp())), "");
  EXPECT_THAT(problem(ConnectedPeer(folder_.addExecutable("unsigned"))), HasSubstr("unsigned.codesig"));
  const std::string other = folder_.addExecutable("other");
  Authority::shared().sign(other, "com.molvane.app", {"other-team"});
  EXPECT_THAT(problem(ConnectedPeer(other)), HasSubstr("certificate leaf[subject.OU]"));

  const int descriptors = openDescriptorCount();
  {
    const ConnectedPeer app(folder_.path("app"));
    const ConnectedPeer refused(other);
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(problem(app), "");
      EXPECT_NE(problem(refused), "");
      EXPECT_NE(problem(app, "anchor apple"), "");
    }
  }
  EXPECT_EQ(openDescriptorCount(), descriptors);
}

TEST_F(CmsCodeSigningPeerTest, WhatThePeerRunsNowCounts) {
  const std::string app = folder_.addApp();
  const std::string other = folder_.addExecutable("unsigned", "different");
  ConnectedPeer peer(app);
  ASSERT_EQ(problem(peer), "");
  ASSERT_EQ(problem(peer), "");
  peer.tell("exec " + other);
  EXPECT_NE(problem(peer), "");
  peer.tell("exec " + app);
  EXPECT_EQ(problem(peer), "");
}

TEST_F(CmsCodeSigningPeerTest, APeerThatHandedItsConnectionOnAndExitedIsGone) {
  ConnectedPeer peer(folder_.addApp());
  ASSERT_EQ(problem(peer), "");
  const PeerVerdict verdict = checker_->checkPeer(peer.socket(), kAppRequirement);
  pollfd ended{verdict.process.get(), POLLIN, 0};
  EXPECT_EQ(poll(&ended, 1, 0), 0);
  peer.tell("hand-on");
  peer.waitForExit();
  EXPECT_EQ(poll(&ended, 1, 0), 1);
  EXPECT_NE(problem(peer), "");
}

TEST_F(CmsCodeSigningPeerTest, TheExecutableStandsWhereItWasStarted) {
  const std::string app = folder_.addApp();
  const ConnectedPeer peer(app);
  ASSERT_EQ(problem(peer), "");

  fs::rename(app, folder_.path("renamed"));
  EXPECT_NE(problem(peer), "");
  fs::copy_file(MOLVANE_SIGNING_PEER, app);
  EXPECT_NE(problem(peer), "") << "another file took its place";
  fs::rename(folder_.path("renamed"), app);
  EXPECT_EQ(problem(peer), "");

  fs::rename(app + ".codesig", folder_.path("app (deleted).codesig"));
  fs::copy_file(app, folder_.path("app (deleted)"));
  fs::remove(app);
  EXPECT_NE(problem(peer), "");
}

TEST_F(CmsCodeSigningPeerTest, SwappingFilesUnderTheCheckDoesNotHelpTheWrongPeer) {
  const std::string good = folder_.addApp("good");
  const std::string path = folder_.addExecutable("path", "different");
  fs::copy_file(good + ".codesig", path + ".codesig");
  const ConnectedPeer wrong(path);
  const ConnectedPeer right(good);

  std::atomic<bool> stop = false;
  std::thread swapper([&] {
    while (!stop) renameat2(AT_FDCWD, good.c_str(), AT_FDCWD, path.c_str(), RENAME_EXCHANGE);
  });
  for (int i = 0; i < 300; ++i) {
    EXPECT_NE(problem(wrong), "");
    (void)problem(right);
  }
  stop = true;
  swapper.join();
  EXPECT_EQ(problem(right), "") << "both files have the signature beside them, wherever they stand";
  EXPECT_NE(problem(wrong), "");
}

TEST_F(CmsCodeSigningPeerTest, ACheckIsRememberedUntilWhatItRestsOnChanges) {
  const std::string app = folder_.addApp();
  const std::string signature = app + ".codesig";
  const std::string anchor = folder_.anchor();
  const auto remove = [](const std::string& path) { return [path] { fs::remove(path); }; };
  const auto touch = [](const std::string& path) { return [path] { chmod(path.c_str(), 0755); }; };
  struct Case {
    std::string name;
    std::function<void()> change;
    bool stillGood;
  };
  const std::vector<Case> cases = {
      {"executable touched", touch(app), true},
      {"signature touched", touch(signature), true},
      {"root touched", touch(anchor), true},
      {"signature removed", remove(signature), false},
      {"signature of another team", [&] { Authority::shared().sign(app, "com.molvane.app", {"other-team"}); },
       false},
      {"signature replaced by a link",
       [&] { fs::rename(signature, signature + "2"), fs::create_symlink(signature + "2", signature); },
       false},
      {"root removed", remove(anchor), false},
      {"root replaced",
       [&] {
         fs::copy_file(Authority::shared().path("vendor.pem"), anchor, fs::copy_options::overwrite_existing);
       },
       false},
      {"root writable by others", [&] { chmod(anchor.c_str(), 0666); }, false},
      {"certificates run out", [&] { ahead_ = std::time_t{20} * 365 * 86400; }, false},
      {"certificates not valid yet", [&] { ahead_ = -std::time_t{2} * 365 * 86400; }, false},
  };
  for (const Case& tried : cases) {
    ahead_ = kLongEnough;
    fs::remove(signature);
    fs::copy_file(Authority::shared().path("root.pem"), anchor, fs::copy_options::overwrite_existing);
    chmod(anchor.c_str(), 0644);
    Authority::shared().sign(app);
    const ConnectedPeer peer(app);
    ASSERT_EQ(problem(peer), "") << tried.name;
    const std::uint64_t before = checker_->fullChecks();
    ASSERT_EQ(problem(peer), "") << tried.name;
    ASSERT_EQ(checker_->fullChecks(), before) << tried.name;
    const auto inTheNextProcess = [&] { return folder_.checker([this] { return ahead_.load(); }); };
    auto next = inTheNextProcess();
    ASSERT_TRUE(next->checkPeer(peer.socket(), kAppRequirement).satisfied()) << tried.name;
    ASSERT_EQ(next->fullChecks(), 0U) << tried.name;

    tried.change();
    next = inTheNextProcess();
    EXPECT_EQ(next->checkPeer(peer.socket(), kAppRequirement).satisfied(), tried.stillGood) << tried.name;
    EXPECT_EQ(next->fullChecks(), 1U) << tried.name;
    EXPECT_EQ(problem(peer).empty(), tried.stillGood) << tried.name;
    EXPECT_EQ(checker_->fullChecks(), before + 1) << tried.name;
  }
}

TEST_F(CmsCodeSigningPeerTest, ACheckOfOtherBytesOrAnotherRequirementIsNotReused) {
  const std::string app = folder_.addApp("app", "1234");
  const struct timespec noAccessTime[2] = {{0, UTIME_OMIT}, {1'000'000'000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, app.c_str(), noAccessTime, 0), 0);
  const std::uint64_t none = checker_->fullChecks();
  {
    const ConnectedPeer peer(app);
    EXPECT_EQ(problem(peer), "");
    EXPECT_EQ(problem(peer), "");
    EXPECT_EQ(checker_->fullChecks(), none + 1);
    EXPECT_NE(problem(peer, std::string(kAppRequirement) + " and anchor apple"), "");
    EXPECT_EQ(problem(peer, "anchor apple generic"), "");
    EXPECT_EQ(checker_->fullChecks(), none + 3);
  }
  // The same file, of the same size, with the same time of modification.
  {
    const FileDescriptor file(open(app.c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_TRUE(file) << strerror(errno);
    const off_t last = lseek(file.get(), -1, SEEK_END);
    ASSERT_EQ(pwrite(file.get(), "5", 1, last), 1);
  }
  ASSERT_EQ(utimensat(AT_FDCWD, app.c_str(), noAccessTime, 0), 0);
  EXPECT_THAT(problem(ConnectedPeer(app)), HasSubstr("not what was signed"));
}

TEST_F(CmsCodeSigningPeerTest, AFileThatWasJustWrittenIsCheckedInFullEachTime) {
  ahead_ = 0;
  const ConnectedPeer peer(folder_.addApp());
  EXPECT_EQ(problem(peer), "");
  EXPECT_EQ(problem(peer), "");
  EXPECT_EQ(checker_->fullChecks(), 2U);
}

TEST_F(CmsCodeSigningPeerTest, ChecksOfManyThreadsDoNotDisturbEachOther) {
  const ConnectedPeer app(folder_.addApp());
  const ConnectedPeer other(folder_.addExecutable("unsigned", "different"));
  std::vector<std::thread> threads;
  std::atomic<int> wrong = 0;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 25; ++round) {
        const std::string requirement =
            "certificate root[subject.CN] = \"Molvane Development Root\" and certificate " +
            std::to_string((i + round) % 3) + "[subject.O] = Molvane";
        if (!problem(app, requirement).empty()) ++wrong;
        if (problem(other, requirement).empty()) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

// Makes the kernel deny this thread the option that pins a peer, as kernels before 6.5 do.
void pretendToRunOnAnOldKernel() {
  constexpr unsigned kPeerPidFd = 77;
  std::array<sock_filter, 6> program = {{
      {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(struct seccomp_data, nr)},
      {BPF_JMP | BPF_JEQ | BPF_K, 0, 3, SYS_getsockopt},
      {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(struct seccomp_data, args[2])},
      {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, kPeerPidFd},
      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | ENOPROTOOPT},
      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
  }};
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
}

TEST_F(CmsCodeSigningPeerTest, AKernelThatCannotPinPeersFindsThemByTheirNumber) {
  ConnectedPeer peer(folder_.addApp());
  const ConnectedPeer other(folder_.addExecutable("unsigned", "different"));
  const auto judge = [&](const std::function<void()>& expectations) {
    std::thread([&] {
      pretendToRunOnAnOldKernel();
      int option = 0;
      socklen_t size = sizeof option;
      ASSERT_EQ(getsockopt(peer.socket().get(), SOL_SOCKET, 77, &option, &size), -1);
      expectations();
    }).join();
  };
  judge([&] {
    EXPECT_EQ(problem(peer), "");
    EXPECT_NE(problem(other), "");
  });
  peer.tell("hand-on");
  peer.waitForExit();
  judge([&] { EXPECT_NE(problem(peer), ""); });
}

}  // namespace
}  // namespace molvane::testing
