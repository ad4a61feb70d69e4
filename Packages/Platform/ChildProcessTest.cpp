#include "Platform/ChildProcess.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "Platform/FileDescriptor.hpp"
#include "Platform/posix/LeftoverProcesses.hpp"
#include "Platform/testing/ToolFolder.hpp"

namespace molvane {
namespace {

using namespace std::chrono_literals;
using StandardInput = ChildProcess::StandardInput;
using testing::hasUnreapedChildren;
using testing::openDescriptorCount;
using testing::StandardStreamsKept;
using testing::ToolFolder;

constexpr std::chrono::seconds kLongEnough{60};

ChildProcess::Clock::time_point in(ChildProcess::Duration span) { return ChildProcess::Clock::now() + span; }

ChildProcess::OutputHandler appendingTo(std::string& text) {
  return [&text](std::string_view piece) { text += piece; };
}

struct Ending {
  std::string output;
  int status = -2;
};

Ending runToTheEnd(ChildProcess& child) {
  Ending ending;
  const bool ended = child.pump(in(kLongEnough), appendingTo(ending.output));
  if (ended && child.drain(in(kLongEnough), appendingTo(ending.output)))
    ending.status = *child.terminationStatus();
  return ending;
}

Ending run(const std::string& executable, const std::vector<std::string>& arguments = {},
           StandardInput standardInput = StandardInput::null) {
  ChildProcess child({executable, arguments, standardInput});
  child.closeInput();
  return runToTheEnd(child);
}

/// Reads output until `text` has come; false when it did not.
bool waitForOutput(ChildProcess& child, const std::string& text) {
  std::string seen;
  const auto giveUp = in(kLongEnough);
  while (seen.find(text) == std::string::npos && ChildProcess::Clock::now() < giveUp) {
    if (child.pump(in(10ms), appendingTo(seen))) break;
  }
  return seen.find(text) != std::string::npos;
}

int launchError(const ChildProcess::Options& options) {
  try {
    ChildProcess child(options);
    return 0;
  } catch (const std::system_error& error) {
    return error.code().value();
  }
}

class ChildProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    run("/bin/sh", {"-c", ":"});  // what the first start of a tool opens for good
    descriptorsBefore_ = openDescriptorCount();
  }

  void TearDown() override {
    EXPECT_FALSE(hasUnreapedChildren());
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore_);
  }

  ToolFolder tools_;

 private:
  int descriptorsBefore_ = 0;
};

TEST_F(ChildProcessTest, MergesBothStreamsInOrderAndReportsTheExitStatus) {
  const Ending ending =
      run(tools_.addScript("tool", "echo out; echo err >&2; printf 'more\\n\\377'; exit 7"));
  EXPECT_EQ(ending.output, "out\nerr\nmore\n\xFF");
  EXPECT_EQ(ending.status, 7);
}

TEST_F(ChildProcessTest, PassesArgumentsEnvironmentAndWorkingDirectoryUnchanged) {
  const std::string tool = tools_.addScript("tool", "printf '<%s>' \"$0\" \"$@\" \"$PATH\"; pwd -P");
  const Ending ending = run(tool, {"two words", "", "$HOME", "*", "a\nb"});
  char* const folder = ::realpath(".", nullptr);
  EXPECT_EQ(ending.output,
            "<" + tool + "><two words><><$HOME><*><a\nb><" + std::getenv("PATH") + ">" + folder + "\n");
  std::free(folder);  // NOLINT(cppcoreguidelines-no-malloc)
}

TEST_F(ChildProcessTest, ReportsWhyALaunchFailed) {
  const std::string script = tools_.addScript("script", "exit 0\n");
  EXPECT_EQ(launchError({tools_.path("missing"), {}}), ENOENT);
  EXPECT_EQ(launchError({script + "/below", {}}), ENOTDIR);
  EXPECT_EQ(launchError({tools_.addFile("plain", "#!/bin/sh\n", 0644), {}}), EACCES);
  EXPECT_EQ(launchError({tools_.path(""), {}}), EACCES);
  EXPECT_EQ(launchError({tools_.addFile("no-shebang", "echo started by a shell\n", 0755), {}}), ENOEXEC);
  EXPECT_EQ(launchError({tools_.addFile("lost", "#!/no/such/interpreter\n", 0755), {}}), ENOENT);
  EXPECT_EQ(launchError({"bin/sh", {}}), EINVAL);
  EXPECT_EQ(launchError({"", {}}), EINVAL);
  EXPECT_EQ(launchError({script + std::string("\0.txt", 5), {}}), EINVAL);
  EXPECT_EQ(launchError({script, {std::string("a\0b", 3)}}), EINVAL);
  EXPECT_EQ(launchError({script, {std::string(std::size_t{64} << 20, 'x')}}), E2BIG);
  EXPECT_EQ(launchError({script, {}}), 0);
}

TEST_F(ChildProcessTest, RunsOrFailsCleanlyAtTheLimitOfDescriptors) {
  const std::string tool = tools_.addScript("tool", "exit 0");
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  std::vector<int> errors;
  const int firstFree = FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)).get();
  for (int headroom = 0; headroom < 8; ++headroom) {
    const rlimit narrow{static_cast<rlim_t>(firstFree + headroom), before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &narrow);
    errors.push_back(launchError({tool, {}, StandardInput::pipe}));
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_FALSE(hasUnreapedChildren()) << headroom;
  }
  EXPECT_EQ(errors.front(), EMFILE);
  EXPECT_EQ(errors.back(), 0);
  for (const int error : errors) EXPECT_THAT(error, ::testing::AnyOf(0, EMFILE));
}

TEST_F(ChildProcessTest, DeliversManyMebibytes) {
  ChildProcess child({"/bin/sh", {"-c", "head -c 50000000 /dev/zero; printf end"}, StandardInput::null});
  std::size_t count = 0;
  std::string last;
  const auto onOutput = [&](std::string_view piece) {
    count += piece.size();
    last = (last + std::string(piece)).substr(std::max<std::size_t>(last.size() + piece.size(), 3) - 3);
  };
  ASSERT_TRUE(child.pump(in(kLongEnough), onOutput));
  ASSERT_TRUE(child.drain(in(kLongEnough), onOutput));
  EXPECT_EQ(count, 50000003U);
  EXPECT_EQ(last, "end");
  EXPECT_EQ(child.terminationStatus(), 0);
}

TEST_F(ChildProcessTest, StartsTheToolWithACleanSignalState) {
  sigset_t blocked;
  sigset_t maskBefore;
  ::sigemptyset(&blocked);
  ::sigaddset(&blocked, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &maskBefore);
  const auto ignoredBefore = ::signal(SIGUSR2, SIG_IGN);
  const auto pipeBefore = ::signal(SIGPIPE, SIG_IGN);

  EXPECT_EQ(run("/bin/sh", {"-c", "kill -USR1 $$; echo still here"}).status, SIGUSR1);
  EXPECT_EQ(run("/bin/sh", {"-c", "kill -USR2 $$; echo still here"}).status, SIGUSR2);
  EXPECT_EQ(run("/bin/sh", {"-c", "kill -PIPE $$; echo still here"}).status, SIGPIPE);

  ::signal(SIGPIPE, pipeBefore);
  ::signal(SIGUSR2, ignoredBefore);
  ::pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
}

TEST_F(ChildProcessTest, LearnsTheStatusAlthoughTheCallerIgnoresSIGCHLD) {
  struct sigaction before {};
  struct sigaction careless {};
  careless.sa_handler = SIG_IGN;
  ::sigaction(SIGCHLD, &careless, &before);
  EXPECT_EQ(run("/bin/sh", {"-c", "exit 7"}).status, 7);

  careless.sa_handler = SIG_DFL;
  careless.sa_flags = SA_NOCLDWAIT;
  ::sigaction(SIGCHLD, &careless, nullptr);
  EXPECT_EQ(run("/bin/sh", {"-c", "exit 8"}).status, 8);
  ::sigaction(SIGCHLD, &before, nullptr);
}

TEST_F(ChildProcessTest, SaysSoWhenSomebodyElseReapedTheProcess) {
  ChildProcess child({"/bin/sh", {"-c", "exit 7"}, StandardInput::null});
  ASSERT_GT(::waitpid(-1, nullptr, 0), 0);
  EXPECT_TRUE(child.pump(in(kLongEnough), [](std::string_view) {}));
  EXPECT_EQ(child.terminationStatus(), -1);
}

TEST_F(ChildProcessTest, GivesTheToolNoOtherDescriptor) {
  const FileDescriptor low(::open("/dev/null", O_RDONLY));  // NOLINT(android-cloexec-open)
  const FileDescriptor high(::fcntl(low.get(), F_DUPFD, 300));
  for (const StandardInput input : {StandardInput::inherited, StandardInput::null, StandardInput::pipe}) {
    // 3 is the one with which ls reads the folder.
    EXPECT_EQ(run("/bin/ls", {"/dev/fd/"}, input).output, "0\n1\n2\n3\n");
  }
}

TEST_F(ChildProcessTest, ConnectsStandardInputAsAsked) {
  const std::string tool = tools_.addScript("tool", "read line && echo \"got $line\"; cat; echo end");
  EXPECT_EQ(run(tool, {}, StandardInput::null).output, "end\n");

  ChildProcess child({tool, {}, StandardInput::pipe});
  EXPECT_TRUE(child.writeInput("a secret\nand "));
  EXPECT_TRUE(child.writeInput("the rest\n"));
  child.closeInput();
  EXPECT_FALSE(child.writeInput("too late"));
  EXPECT_EQ(runToTheEnd(child).output, "got a secret\nand the rest\nend\n");

  Ending ending;
  {
    const StandardStreamsKept kept;
    const FileDescriptor file(
        ::open(tools_.addFile("input", "from the caller\n", 0644).c_str(), O_RDONLY | O_CLOEXEC));
    ::dup2(file.get(), STDIN_FILENO);
    ending = run(tool, {}, StandardInput::inherited);
  }
  EXPECT_EQ(ending.output, "got from the caller\nend\n");
}

TEST_F(ChildProcessTest, AnswersFromWithinTheOutputHandler) {
  ChildProcess child({tools_.addScript("tool", "printf 'Password: '; read word; echo \"heard $word\""),
                      {},
                      StandardInput::pipe});
  std::string output;
  const auto onOutput = [&](std::string_view piece) {
    output += piece;
    if (output == "Password: ") {
      EXPECT_TRUE(child.writeInput("sesame\n"));
    }
  };
  ASSERT_TRUE(child.pump(in(kLongEnough), onOutput));
  ASSERT_TRUE(child.drain(in(kLongEnough), onOutput));
  EXPECT_EQ(output, "Password: heard sesame\n");
}

TEST_F(ChildProcessTest, WritingToAToolThatDoesNotReadNeitherWaitsNorRaisesSIGPIPE) {
  ASSERT_EQ(::signal(SIGPIPE, SIG_DFL), SIG_DFL);
  ChildProcess deaf({"/bin/sh", {"-c", "exec 0<&-; echo ready; exec sleep 1000"}, StandardInput::pipe});
  ASSERT_TRUE(waitForOutput(deaf, "ready"));
  EXPECT_FALSE(deaf.writeInput("anybody?\n"));
  EXPECT_FALSE(deaf.writeInput("anybody?\n"));

  ChildProcess idle({"/bin/sleep", {"1000"}, StandardInput::pipe});
  EXPECT_FALSE(idle.writeInput(std::string(std::size_t{8} << 20, 'x')));
  EXPECT_TRUE(deaf.writeInput("")) << "nothing is nothing to fail with";
}

TEST_F(ChildProcessTest, WorksWhateverStandardStreamsTheCallerHasClosed) {
  const std::string tool = tools_.addScript("tool", "cat; echo out; echo err >&2; exec /bin/ls /dev/fd/");
  std::vector<std::string> wrong;
  for (int closed = 0; closed < 8; ++closed) {
    for (const StandardInput input : {StandardInput::inherited, StandardInput::null, StandardInput::pipe}) {
      // The runner's own input could be anything.
      if (input == StandardInput::inherited && (closed & 1) == 0) continue;
      Ending ending;
      {
        const StandardStreamsKept kept;
        for (int fd = 0; fd < 3; ++fd) {
          if ((closed & (1 << fd)) != 0) ::close(fd);
        }
        ending = run(tool, {}, input);
      }
      if (ending.status != 0 || ending.output != "out\nerr\n0\n1\n2\n3\n") {
        wrong.push_back(std::to_string(closed) + ": " + ending.output);
      }
    }
  }
  EXPECT_THAT(wrong, ::testing::IsEmpty());
}

TEST_F(ChildProcessTest, TerminatesOnlyWhatStillRuns) {
  ChildProcess child({"/bin/sh", {"-c", "echo ready; exec sleep 1000"}, StandardInput::null});
  EXPECT_EQ(child.terminationStatus(), std::nullopt);
  child.terminate();
  EXPECT_EQ(runToTheEnd(child).status, SIGTERM);
  child.terminate();
  EXPECT_EQ(child.terminationStatus(), SIGTERM);
}

TEST_F(ChildProcessTest, StopsWaitingAtTheDeadlineEvenOfAToolThatNeverPauses) {
  ChildProcess flood({"/bin/sh", {"-c", "exec yes"}, StandardInput::null});
  std::size_t count = 0;
  const auto onOutput = [&](std::string_view piece) {
    count += piece.size();
    std::this_thread::sleep_for(2ms);  // so slow a reader that there is always more to read
  };
  EXPECT_FALSE(flood.pump(in(50ms), onOutput));
  EXPECT_FALSE(flood.drain(in(50ms), onOutput));
  EXPECT_GT(count, 0U);

  ChildProcess quiet({"/bin/sleep", {"1000"}, StandardInput::null});
  EXPECT_FALSE(quiet.pump(in(10ms), onOutput));
  EXPECT_FALSE(quiet.drain(in(10ms), onOutput));
  EXPECT_FALSE(quiet.pump(in(-1h), onOutput));
}

TEST_F(ChildProcessTest, AGrandchildThatKeepsThePipeOpenCostsTheDeadlineAndNoMore) {
  {
    // The grandchild ends with its input, which closes with the object.
    ChildProcess child(
        {tools_.addScript("tool", "exec 3<&0; cat <&3 & echo started; exit 3"), {}, StandardInput::pipe});
    std::string output;
    EXPECT_TRUE(child.pump(in(kLongEnough), appendingTo(output)));
    EXPECT_EQ(child.terminationStatus(), 3);
    EXPECT_FALSE(child.drain(in(50ms), appendingTo(output)));
    EXPECT_EQ(output, "started\n");
  }
  EXPECT_TRUE(LeftoverProcesses::shared().waitUntilNone(in(kLongEnough)));
}

TEST_F(ChildProcessTest, ReapsAProcessThatIsAbandonedHoweverItHappens) {
  { const ChildProcess running({"/bin/sleep", {"1000"}, StandardInput::null}); }
  EXPECT_FALSE(hasUnreapedChildren());

  ChildProcess child({"/bin/sh", {"-c", "echo output; exec sleep 1000"}, StandardInput::null});
  EXPECT_THROW(child.pump(in(kLongEnough), [](std::string_view) { throw std::runtime_error("no"); }),
               std::runtime_error);
  EXPECT_EQ(child.terminationStatus(), std::nullopt) << "the handler's failure is not the tool's";
}

TEST_F(ChildProcessTest, ProcessesStartedSideBySideDoNotHoldEachOthersPipes) {
  std::atomic<int> right = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 25; ++round) {
        ChildProcess child({"/bin/cat", {}, StandardInput::pipe});
        const bool written = child.writeInput("through");
        child.closeInput();
        const Ending ending = runToTheEnd(child);
        if (written && ending.status == 0 && ending.output == "through") ++right;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(right, 200);
}

}  // namespace
}  // namespace molvane
