#include "molvanectl/testing/Shell.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

namespace molvane::ctl {

ShellResult shell(const std::string& script) {
  ::setenv("M", MOLVANECTL_PROGRAM, 1);
  ::setenv("SOURCE", MOLVANE_SOURCE_DIR, 1);
  const std::string folder = std::filesystem::path(MOLVANECTL_PROGRAM).parent_path();
  ::setenv("SCRIPT", ("PATH='" + folder + "':$PATH\n" + script).c_str(), 1);

  ShellResult result;
  // NOLINTNEXTLINE(cert-env33-c): a shell is what is asked for
  FILE* const pipe = ::popen("exec bash -c \"$SCRIPT\"", "r");
  if (pipe == nullptr) return result;
  std::array<char, 4096> buffer{};
  while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    result.output.append(buffer.data(), size);
  }
  const int status = ::pclose(pipe);
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  return result;
}

std::string outputOf(const std::string& script) {
  const ShellResult result = shell(script);
  EXPECT_EQ(result.status, 0) << script << "\n" << result.output;
  return result.status == 0 ? result.output : std::string();
}

}  // namespace molvane::ctl
