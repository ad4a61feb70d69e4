#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

#include "Platform/ChildProcess.hpp"
#include "Platform/posix/LeftoverProcesses.hpp"
#include "Platform/testing/ToolFolder.hpp"

namespace molvane {
namespace {

using namespace std::chrono_literals;
using testing::hasUnreapedChildren;
using testing::openDescriptorCount;
using testing::ToolFolder;
using StandardInput = ChildProcess::StandardInput;

constexpr std::chrono::seconds kLongEnough{60};

ChildProcess::Clock::time_point in(ChildProcess::Duration span) { return ChildProcess::Clock::now() + span; }

class ChildProcessLeftoverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    LeftoverProcesses::shared();
    descriptorsBefore_ = openDescriptorCount();
  }

  void TearDown() override {
    EXPECT_TRUE(LeftoverProcesses::shared().waitUntilNone(in(kLongEnough)));
    EXPECT_FALSE(hasUnreapedChildren());
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore_);
  }

  ToolFolder tools_;

 private:
  int descriptorsBefore_ = 0;
};

TEST_F(ChildProcessLeftoverTest, AToolThatIgnoresTheRequestGoesOnUndisturbedAndIsReaped) {
  const std::string tool = tools_.addScript(
      "tool", "trap '' TERM; echo ready; read released; head -c 1000000 /dev/zero && echo done > \"$1\"");
  const std::string mark = tools_.path("mark");
  {
    ChildProcess child({tool, {mark}, StandardInput::pipe});
    std::string output;
    while (output != "ready\n")
      ASSERT_FALSE(child.pump(in(10ms), [&](std::string_view piece) { output += piece; }));
    child.terminate();
    ASSERT_FALSE(child.pump(in(100ms), [](std::string_view) {}));
    child.detachOnDestruction();
    EXPECT_FALSE(std::filesystem::exists(mark));
    // The end of its input, which comes with the end of the object, releases the tool.
  }
  ASSERT_TRUE(LeftoverProcesses::shared().waitUntilNone(in(kLongEnough)));
  EXPECT_TRUE(std::filesystem::exists(mark)) << "the tool could not write a mebibyte that nobody reads";
}

// However the tool ended, and whether or not somebody still looks at what it wrote.
TEST_F(ChildProcessLeftoverTest, WhatAToolLeavesBehindGoesOnTalking) {
  const std::string fifo = tools_.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const std::string tool = tools_.addScript(
      "tool", "(exec 3<\"$1\"; echo up; read -r _ <&3; head -c 1000000 /dev/zero && echo done >\"$2\") & $3");
  for (const std::string end : {"exit 3", "exec sleep 1000"}) {
    const std::string mark = tools_.path(end);
    FileDescriptor released;
    {
      ChildProcess child({tool, {fifo, mark, end}, StandardInput::null});
      released.reset(::open(fifo.c_str(), O_WRONLY | O_CLOEXEC));
      std::string output;
      const auto onOutput = [&](std::string_view piece) { output += piece; };
      for (const auto giveUp = in(kLongEnough); output != "up\n" && in(0s) < giveUp;) {
        child.drain(in(10ms), onOutput);
      }
      const bool ends = end == "exit 3";
      EXPECT_EQ(child.pump(ends ? in(kLongEnough) : in(0s), onOutput), ends);
    }
    EXPECT_FALSE(std::filesystem::exists(mark));
    EXPECT_EQ(::write(released.get(), "\n", 1), 1);
    ASSERT_TRUE(LeftoverProcesses::shared().waitUntilNone(in(kLongEnough)));
    EXPECT_TRUE(std::filesystem::exists(mark)) << end;
  }
}

TEST_F(ChildProcessLeftoverTest, DetachingDoesNothingToAToolThatHasEnded) {
  {
    ChildProcess child({"/bin/true", {}, StandardInput::null});
    ASSERT_TRUE(child.pump(in(kLongEnough), [](std::string_view) {}));
    child.detachOnDestruction();
  }
  EXPECT_FALSE(hasUnreapedChildren());
}

TEST_F(ChildProcessLeftoverTest, NoToolIsStartedWhileTooManyAreLeft) {
  const std::string fifo = tools_.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  // Open at both ends, so that no tool waits for the other side to come.
  const FileDescriptor both(::open(fifo.c_str(), O_RDWR | O_CLOEXEC));
  for (std::size_t i = 0; i < LeftoverProcesses::kMost; ++i) {
    ChildProcess child({"/bin/sh", {"-c", "read released < \"$0\"", fifo}, StandardInput::null});
    child.detachOnDestruction();
  }
  int code = 0;
  try {
    const ChildProcess oneTooMany({"/bin/true", {}, StandardInput::null});
  } catch (const std::system_error& error) {
    code = error.code().value();
  }
  EXPECT_EQ(code, EAGAIN);

  // Each takes one line, and reads no further than that.
  const std::string lines(LeftoverProcesses::kMost, '\n');
  EXPECT_EQ(::write(both.get(), lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
  EXPECT_TRUE(LeftoverProcesses::shared().waitUntilNone(in(kLongEnough)));
  EXPECT_NO_THROW(ChildProcess({"/bin/true", {}, StandardInput::null}));
}

}  // namespace
}  // namespace molvane
