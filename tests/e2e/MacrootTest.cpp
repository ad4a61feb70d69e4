// The Mac-shaped root itself, looked at from the machine that it must leave alone.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "Harness.hpp"

namespace molvane::e2e {
namespace {

using testing::StartsWith;

constexpr int kSkipped = 77;

Outcome enter(const std::string& script) { return run({MACROOT_ENTER, "--bare", "/bin/bash", "-c", script}); }

// From here on this process has a mount table of its own. What the machine mounts does not show in it; what a
// root lets out into the place that it was entered from does.
bool leaveTheMachinesMounts() {
  return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("none", "/", nullptr, MS_REC | MS_SHARED, nullptr) == 0;
}

class Macroot : public testing::Test {
 protected:
  void SetUp() override { mounts_ = readFile("/proc/self/mountinfo"); }
  void TearDown() override { EXPECT_EQ(readFile("/proc/self/mountinfo"), mounts_); }

 private:
  std::string mounts_;
};

TEST_F(Macroot, LooksLikeAMac) {
  const Outcome outcome = enter(
      "set -e; for folder in /Applications /Library /System /Volumes /Users/ann /Users/bob; do test -d "
      "$folder; done;"
      "id -u ann bob; stat -c %U /dev/console; echo ~root ~ann; stat -c '%a %U:%G' /var/root /Users/ann;"
      "getent group _molvane | cut -d: -f1; cd /private/var/root && cd /private/etc");
  EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
  EXPECT_EQ(outcome.out, "501\n502\nann\n/var/root /Users/ann\n750 root:wheel\n750 ann:staff\n_molvane\n");
}

TEST_F(Macroot, KeepsTheMachineOut) {
  const Outcome outcome = enter(
      "find /dev /tmp /run -type b ! -name '*disk*'; ls -d /proc/[0-9]* | wc -l; cut -d: -f1 /etc/passwd | "
      "sort;"
      "findmnt -rno SOURCE | grep ^/dev | grep -v ^/dev/disk; echo 0 > /proc/sys/kernel/panic");
  EXPECT_NE(outcome.status, 0) << "the kernel's settings can be written";
  const auto lines = outcome.out.find('\n');
  EXPECT_LT(std::stoi(outcome.out.substr(0, lines)), 20) << "the machine's processes can be seen";
  EXPECT_EQ(outcome.out.substr(lines), "\nann\nbob\ndaemon\nnobody\nroot\n");
}

TEST_F(Macroot, WhatIsWrittenVanishes) {
  const std::filesystem::path project = std::filesystem::path(MACROOT_ENTER).parent_path().parent_path();
  const std::string users = readFile("/etc/passwd");
  const std::string name = "macroot-test-" + std::to_string(getpid());
  const Outcome outcome = enter("set -e; for folder in / /etc /usr/bin /usr/local /var /tmp /dev /run '" +
                                project.string() + "'; do echo x > $folder/" + name +
                                "; done; echo x:x:9:9::/: >> /etc/passwd; rm -r /usr/share/doc");
  EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
  for (const std::filesystem::path folder :
       {"/", "/etc", "/usr/bin", "/usr/local", "/var", "/tmp", "/dev", "/run"}) {
    EXPECT_FALSE(std::filesystem::exists(folder / name)) << folder;
  }
  EXPECT_FALSE(std::filesystem::exists(project / name));
  EXPECT_EQ(readFile("/etc/passwd"), users);
}

TEST_F(Macroot, StatusIsTheCommands) {
  EXPECT_EQ(enter("exit 0").status, 0);
  EXPECT_EQ(enter("exit 42").status, 42);
  EXPECT_EQ(enter("kill -KILL $$").status, 128 + SIGKILL);
  EXPECT_EQ(run({MACROOT_ENTER, "--bare", "/no/such/command"}).status, 127);
  EXPECT_EQ(run({MACROOT_ENTER}).status, 125);
  EXPECT_EQ(run({MACROOT_ENTER, "--build", "/etc", "/bin/true"}).status, 125);
}

TEST_F(Macroot, SaysWhenItCannotBeMade) {
  // As somebody else the script must still be readable, wherever the project lies.
  const std::string copy = "/tmp/enter-" + std::to_string(getpid());
  std::filesystem::copy_file(MACROOT_ENTER, copy);
  const Outcome outcome = run({copy, "/bin/true"}, {65534, 65534});
  std::filesystem::remove(copy);
  EXPECT_EQ(outcome.status, kSkipped) << testing::PrintToString(outcome);
  EXPECT_THAT(outcome.err, StartsWith("enter: skipped: "));
}

// A pipe whose writing end is handed down to every process of the root: its end is the end of them all.
class Lifeline {
 public:
  Lifeline() {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) throw std::runtime_error("pipe");
    reader_.reset(ends[0]);
    writer_.reset(ends[1]);
    fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  }
  [[nodiscard]] std::string writer() const { return std::to_string(writer_.get()); }
  void letGo() { writer_.reset(); }

  /// Waits for one byte; false at the end of all writers. Throws std::runtime_error after kPatience.
  bool next() {
    pollfd readable{reader_.get(), POLLIN, 0};
    const auto limit = std::chrono::milliseconds(kPatience).count();
    if (poll(&readable, 1, static_cast<int>(limit)) != 1) throw std::runtime_error("processes are left");
    char byte = 0;
    return read(reader_.get(), &byte, 1) == 1;
  }

 private:
  FileDescriptor reader_;
  FileDescriptor writer_;
};

class MacrootEnded : public Macroot, public testing::WithParamInterface<int> {};

TEST_P(MacrootEnded, TakesEveryProcessWithIt) {
  Lifeline line;
  Program root(
      {MACROOT_ENTER, "--bare", "/bin/bash", "-c",
       "trap '' TERM INT HUP; sleep 3600 & setsid sleep 3600 & printf . >&" + line.writer() + "; wait"});
  line.letGo();
  ASSERT_TRUE(line.next()) << testing::PrintToString(root.wait());
  root.kill(GetParam());
  EXPECT_EQ(root.wait().status, 128 + GetParam());
  EXPECT_FALSE(line.next());
}

INSTANTIATE_TEST_SUITE_P(BySignal, MacrootEnded, testing::Values(SIGTERM, SIGINT, SIGHUP, SIGKILL));

TEST_F(Macroot, TakesWhatTheCommandLeftRunningWithIt) {
  Lifeline line;
  Program root({MACROOT_ENTER, "--bare", "/bin/bash", "-c", "setsid sleep 3600 & setsid -f sleep 3600"});
  line.letGo();
  EXPECT_EQ(root.wait().status, 0);
  EXPECT_FALSE(line.next());
}

// Its disks. A machine that lends no loop devices has none.
class MacrootDisks : public Macroot {
 protected:
  void SetUp() override {
    Macroot::SetUp();
    if (enter("test -b /dev/disk4").status != 0) GTEST_SKIP() << "this machine lends no loop devices";
  }

  // A root with a disk that can fail must be possible, too.
  static bool canFail() { return enter("$MACROOT/lib/disk attach --faulty disk9 1M").status == 0; }

  // Loop devices of the machine with that many bytes.
  static int loopsOf(std::uint64_t bytes) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/sys/block")) {
      if (entry.path().filename().string().find("loop") != 0) continue;
      if (readFile(entry.path() / "size") == std::to_string(bytes / 512) + "\n") ++count;
    }
    return count;
  }

  // A size that no other root's disk has.
  const std::uint64_t size_ = (std::uint64_t{16} << 20) + static_cast<std::uint64_t>(getpid()) * 512;
};

TEST_F(MacrootDisks, NoneIsLeftWhenTheRootIsKilledInTheMiddleOfAWrite) {
  if (!canFail()) GTEST_SKIP() << "this machine has no nbdkit, nbdfuse or /dev/fuse";
  for (const int signal : {SIGTERM, SIGKILL}) {
    Lifeline line;
    Program root(
        {MACROOT_ENTER, "--bare", "/bin/bash", "-c",
         "set -e; d=$MACROOT/lib/disk; $d attach --volume /Volumes/Extra disk8 " + std::to_string(size_) +
             "; $d attach --faulty disk9 " + std::to_string(size_) +
             "; echo hold-writes 0 > /etc/macroot/disks/disk9;"
             "dd if=/dev/zero of=/dev/rdisk9 bs=1M oflag=direct 2>/dev/null & "
             "until grep -q ' [1-9]' <(cut -c10- /sys/../run/macroot/sys/dev/block/$(stat -c '%Hr:%Lr' "
             "/dev/disk9)/inflight); do :; done; printf . >&" +
             line.writer() + "; wait"});
    line.letGo();
    ASSERT_TRUE(line.next()) << testing::PrintToString(root.wait());
    EXPECT_EQ(loopsOf(size_), 2);
    root.kill(signal);
    EXPECT_EQ(root.wait().status, 128 + signal);
    EXPECT_FALSE(line.next());
    EXPECT_TRUE(eventually([&] { return loopsOf(size_) == 0; })) << "a loop device is left behind";
  }
}

TEST_F(Macroot, StandInsLogTheirCallsAndBehaveAsTold) {
  const Outcome outcome = enter(
      "mdutil -E '/a b' 2>/dev/null; setpriv --reuid ann --clear-groups qlmanage -r >/dev/null;"
      "echo 'exit 9' > /etc/macroot/behaviour/purge; purge; echo $?;"
      "echo 'fool around' > /etc/macroot/behaviour/purge; purge 2>/dev/null; echo $?; cat "
      "/var/log/macroot/tools.log;"
      "for bad in 'mdutil -X /' 'diskutil explode /' 'dscl . -create /Users/bob UserShell /bin/sh' "
      "'setpriv --reuid ann --clear-groups mdutil -E /'; do $bad >/dev/null 2>&1 && echo \"took $bad\"; "
      "done");
  EXPECT_EQ(outcome.out,
            "9\n99\nuid=0 /usr/bin/mdutil -E /a\\ b\nuid=501 /usr/bin/qlmanage -r\n"
            "uid=0 /usr/sbin/purge\nuid=0 /usr/sbin/purge\n");
}

}  // namespace
}  // namespace molvane::e2e

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (geteuid() != 0) {
    std::fputs("MacrootTests: skipped: the Mac-shaped root needs root\n", stderr);
    return molvane::e2e::kSkipped;
  }
  const auto possible = molvane::e2e::run({MACROOT_ENTER, "--bare", "/bin/true"});
  if (possible.status == molvane::e2e::kSkipped) {
    std::fputs(possible.err.c_str(), stderr);
    return molvane::e2e::kSkipped;
  }
  if (!molvane::e2e::leaveTheMachinesMounts()) {
    std::perror("MacrootTests: mounts of its own");
    return EXIT_FAILURE;
  }
  return RUN_ALL_TESTS();
}
