#include "HelperKit/Applications/ApplicationPlacement.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "HelperKit/Applications/ApplicationInstallPolicy.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

// A process that does `work`, which gives its exit status, and stops before each system call that moves or
// removes something or waits for the disk.
class SteppedProcess {
 public:
  explicit SteppedProcess(const std::function<int()>& work) : pid_(fork()) {
    if (pid_ == 0) {
      ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      raise(SIGSTOP);
      _exit(work());
    }
    waitpid(pid_, nullptr, 0);
    ptrace(PTRACE_SETOPTIONS, pid_, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  }
  ~SteppedProcess() { end(); }
  SteppedProcess(const SteppedProcess&) = delete;
  SteppedProcess& operator=(const SteppedProcess&) = delete;

  // Lets it go on to the next such call; false when it has ended.
  bool goOn() {
    constexpr int kAtSystemCall = SIGTRAP | 0x80;
    static const std::set<std::uint64_t> kSteps = {SYS_rename,   SYS_renameat, SYS_renameat2,
                                                   SYS_unlinkat, SYS_fsync,    SYS_syncfs};
    while (pid_ > 0 && ptrace(PTRACE_SYSCALL, pid_, nullptr, nullptr) == 0) {
      if (waitpid(pid_, &status_, 0) == pid_ && !WIFSTOPPED(status_)) pid_ = -1;
      if (pid_ < 0 || WSTOPSIG(status_) != kAtSystemCall) continue;
      __ptrace_syscall_info call{};
      ptrace(PTRACE_GET_SYSCALL_INFO, pid_, sizeof call, &call);
      if (call.op == PTRACE_SYSCALL_INFO_ENTRY && kSteps.contains(call.entry.nr)) return true;
    }
    return false;
  }
  void end() {
    if (pid_ > 0 && kill(pid_, SIGKILL) == 0) waitpid(std::exchange(pid_, -1), nullptr, 0);
  }
  [[nodiscard]] int exitStatus() const { return WEXITSTATUS(status_); }

 private:
  pid_t pid_;
  int status_ = 0;
};

// From now on the kernel knows no flags of a rename for this process, as it does not on some file systems.
void forgetRenameFlags() {
  std::array<sock_filter, 6> filter = {{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_renameat2, 0, 3),
                                        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[4])),
                                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 1, 0),
                                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
                                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
  const sock_fprog program{filter.size(), filter.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    _exit(99);
  }
}

class ApplicationPlacementTest : public ::testing::Test {
 protected:
  enum Result { placed, otherApp, failed };
  // What somebody else does before the step of that number.
  using Meanwhile = std::map<int, std::function<void()>>;

  [[nodiscard]] std::string applications() const { return scratch_.path() + "/Applications"; }
  [[nodiscard]] std::string stagingPath() const { return scratch_.path() + "/Staging"; }
  [[nodiscard]] std::string installed(const std::string& name = "Foo.app") const {
    return applications() + "/" + name;
  }

  static void writeApp(const std::string& path, const std::string& identifier, const std::string& version) {
    fs::create_directories(path + "/Contents");
    std::ofstream(path + "/Contents/Info.plist")
        << "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" << identifier
        << "</string></dict></plist>";
    std::ofstream(path + "/version") << version;
  }
  static std::string versionOf(const std::string& path) {
    std::string version;
    std::ifstream(path + "/version") >> version;
    return version;
  }
  static std::set<std::string> namesIn(const std::string& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename());
    return names;
  }

  void begin() const {
    for (const std::string& folder : {applications(), stagingPath()}) {
      for (const auto& entry : fs::directory_iterator(folder)) fs::remove_all(entry);
    }
    writeApp(installed(), "com.example.foo", "old");
  }
  // Another application comes into the place, whatever was there.
  void take(const std::string& identifier) const {
    fs::remove_all(installed());
    writeApp(installed(), identifier, identifier);
  }

  // Places the new version.
  [[nodiscard]] Result place() const try {
    StagedItem work = staging_.makeFolder();
    writeApp(work.path() + "/Foo.app", "com.example.foo", "new");
    return placement_.place(work, "Foo.app", "com.example.foo") == installed() ? placed : failed;
  } catch (const ApplicationInstallPolicy::Failure& failure) {
    return failure.which() == ApplicationInstallPolicy::FailureCase::otherApp ? otherApp : failed;
  } catch (const std::exception&) {
    return failed;
  }
  [[nodiscard]] SteppedProcess placing(bool canExchange) const {
    return SteppedProcess([this, canExchange]() -> int {
      if (!canExchange) forgetRenameFlags();
      return place();
    });
  }
  [[nodiscard]] int placeWhile(bool canExchange, const Meanwhile& meanwhile) const {
    SteppedProcess helper = placing(canExchange);
    for (int step = 1; helper.goOn(); ++step) {
      if (const auto change = meanwhile.find(step); change != meanwhile.end()) change->second();
    }
    return helper.exitStatus();
  }
  [[nodiscard]] std::string logOfSweep() const {
    ::testing::internal::CaptureStderr();
    placement_.sweep();
    return ::testing::internal::GetCapturedStderr();
  }

  TemporaryFolder scratch_{"/dev/shm"};
  const StagingFolder staging_{stagingPath()};
  const ApplicationPlacement placement_{staging_, (fs::create_directory(applications()), applications())};
};

// The steps before the first move, of the exchange and of the two moves in its stead.
constexpr int kFirstMove = 2;
constexpr int kExchange = 3;
constexpr int kMoveIn = 7;

TEST_F(ApplicationPlacementTest, AKillAtAnyStepLosesNothingAndAnExchangeLeavesNoGap) {
  for (const bool canExchange : {true, false}) {
    int gaps = 0;
    for (int steps = 1;; ++steps) {
      begin();
      SteppedProcess helper = placing(canExchange);
      bool ended = false;
      for (int step = 0; step < steps && !ended; ++step) ended = !helper.goOn();
      if (ended) {
        EXPECT_EQ(helper.exitStatus(), placed);
        EXPECT_GT(steps, kMoveIn);
        break;
      }
      helper.end();
      const std::string left = versionOf(installed());
      if (left.empty()) ++gaps;
      placement_.salvage();
      const std::string salvaged = versionOf(installed());
      EXPECT_EQ(salvaged, left.empty() ? "old" : left) << "after step " << steps;
      placement_.sweep();
      EXPECT_EQ(versionOf(installed()), salvaged);
      EXPECT_THAT(namesIn(stagingPath()), ::testing::IsEmpty()) << "after step " << steps;
      EXPECT_THAT(namesIn(applications()), ::testing::ElementsAre("Foo.app"));
    }
    EXPECT_EQ(gaps > 0, !canExchange);
  }
}

// What is about to be removed because it was replaced must not pass for something that has to go back.
TEST_F(ApplicationPlacementTest, AKilledSweepPutsNothingBackThatIsHalfGone) {
  bool ended = false;
  for (int steps = 1; !ended; ++steps) {
    begin();
    SteppedProcess helper = placing(true);
    for (int step = 0; step <= kExchange; ++step) ASSERT_TRUE(helper.goOn());
    helper.end();
    SteppedProcess sweep([this] { return placement_.sweep(), 0; });
    for (int step = 0; step < steps && !ended; ++step) ended = !sweep.goOn();
    sweep.end();
    fs::remove_all(installed());
    placement_.sweep();
    EXPECT_EQ(fs::exists(installed()), versionOf(installed()) == "old") << "after step " << steps;
  }
}

TEST_F(ApplicationPlacementTest, WhatComesOrGoesMeanwhileIsNeitherLostNorReplaced) {
  const auto takesIt = [this] { take("com.example.other"); };
  const auto removesIt = [this] { fs::remove_all(installed()); };
  for (const bool canExchange : {true, false}) {
    begin();
    EXPECT_EQ(placeWhile(canExchange, {{kFirstMove, removesIt}}), placed);
    EXPECT_EQ(versionOf(installed()), "new");
    begin();
    EXPECT_EQ(placeWhile(canExchange, {{kFirstMove, takesIt}}), otherApp);
    EXPECT_EQ(versionOf(installed()), "com.example.other");
    begin();
    removesIt();
    EXPECT_EQ(placeWhile(canExchange, {{kFirstMove, [this] { fs::create_directory(installed()); }}}),
              otherApp);
    EXPECT_THAT(namesIn(stagingPath()), ::testing::IsEmpty());
  }
  // Between the two moves.
  begin();
  EXPECT_EQ(placeWhile(false, {{kMoveIn, takesIt}}), otherApp);
  EXPECT_EQ(versionOf(installed()), "com.example.other");
  EXPECT_EQ(versionOf(installed("previous-Foo.app")), "old");
}

// Its place and the name beside it are taken, so the older copy stays in the work folder, whatever is swept,
// until the place is free again. So does what came out of the place when an exchange was undone.
TEST_F(ApplicationPlacementTest, WhatWasNotReplacedStaysUntilItsPlaceIsFree) {
  const auto takesBoth = [this] {
    take("com.example.other");
    writeApp(installed("previous-Foo.app"), "com.example.other", "1");
  };
  const auto takes = [this](const char* identifier) { return [=, this] { take(identifier); }; };
  const std::pair<bool, Meanwhile> cases[] = {
      {false, {{kMoveIn, takesBoth}}},
      {true, {{kExchange, takes("com.example.other")}, {kExchange + 1, takes("com.example.third")}}}};
  for (const auto& [canExchange, meanwhile] : cases) {
    begin();
    EXPECT_EQ(placeWhile(canExchange, meanwhile), otherApp);
    EXPECT_EQ(versionOf(installed()), "com.example.other");
    const std::set<std::string> kept = namesIn(stagingPath());
    ASSERT_EQ(kept.size(), 1U);
    for (int sweeps = 0; sweeps < 2; ++sweeps) {
      EXPECT_THAT(logOfSweep(), ::testing::HasSubstr(stagingPath() + "/" + *kept.begin()));
      EXPECT_EQ(namesIn(stagingPath()), kept);
    }
    fs::remove_all(installed());
    EXPECT_THAT(logOfSweep(), ::testing::HasSubstr("put back " + installed()));
    EXPECT_EQ(versionOf(installed()), canExchange ? "com.example.third" : "old");
    EXPECT_THAT(namesIn(stagingPath()), ::testing::IsEmpty());
  }
}

// Hidden folders beside the applications: only those that are really leftovers of ours are taken, and only
// what was about to be replaced goes back.
TEST_F(ApplicationPlacementTest, SweepsItsOwnFoldersInTheApplicationsFolder) {
  const std::string uuid = "0B571681-2208-4324-890E-E8E482A51CF5";
  const std::string leftover = installed(".com.molvane.helper-" + uuid);
  const std::string open = installed(".com.molvane.helper-1" + uuid.substr(1));
  writeApp(leftover + "/previous-Foo.app", "com.example.foo", "1");
  writeApp(leftover + "/Foo.app", "com.example.foo", "2");
  writeApp(leftover + "/previous-Bar.app", "com.example.bar", "replaced, or never accepted");
  fs::permissions(leftover, fs::perms(0700));
  fs::create_directory(open);
  fs::permissions(open, fs::perms(0755));
  fs::create_directory(installed(uuid));
  placement_.sweep();
  EXPECT_EQ(versionOf(installed("Foo.app")), "1");
  EXPECT_FALSE(fs::exists(installed("Bar.app")));
  EXPECT_FALSE(fs::exists(leftover));
  EXPECT_TRUE(fs::exists(open) && fs::exists(installed(uuid)));
}

}  // namespace
}  // namespace molvane
