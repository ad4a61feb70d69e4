#include "Platform/Log.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <string>

#include "Platform/FileDescriptor.hpp"
#include "Platform/posix/SpawnHost.hpp"

namespace molvane {
namespace {

// Everything that is in the pipe.
std::string taken(const FileDescriptor& readEnd) {
  std::string all;
  std::array<char, PIPE_BUF> piece{};
  ssize_t count = 0;
  while ((count = ::read(readEnd.get(), piece.data(), piece.size())) > 0) {
    all.append(piece.data(), static_cast<std::size_t>(count));
  }
  return all;
}

TEST(Log, AReaderThatDoesNotReadHoldsNobodyUp) {
  const Pipe pipe = openPipe();
  ASSERT_EQ(::fcntl(pipe.readEnd.get(), F_SETFL, O_NONBLOCK), 0);
  ASSERT_EQ(::fcntl(pipe.writeEnd.get(), F_SETFL, O_NONBLOCK), 0);
  const std::string filler(PIPE_BUF, 'f');
  while (::write(pipe.writeEnd.get(), filler.data(), filler.size()) > 0) {
  }
  ASSERT_EQ(::fcntl(pipe.writeEnd.get(), F_SETFL, 0), 0);
  const FileDescriptor before(::dup(STDERR_FILENO));
  ASSERT_EQ(::dup2(pipe.writeEnd.get(), STDERR_FILENO), STDERR_FILENO);

  logLine("one");
  logLine("two");
  EXPECT_EQ(taken(pipe.readEnd).find_first_not_of('f'), std::string::npos);
  logLine("three\n");
  logLine(std::string(std::size_t{2} * PIPE_BUF, 'x'));
  ASSERT_EQ(::dup2(before.get(), STDERR_FILENO), STDERR_FILENO);
  EXPECT_EQ(taken(pipe.readEnd),
            "MolvaneHelper: the log was not read; lines missing here: 2\n"
            "three\\x0a\n" +
                std::string(PIPE_BUF - 4, 'x') + "...\n");
}

}  // namespace
}  // namespace molvane
