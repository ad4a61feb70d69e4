#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "molvanectl/CommandLine.hpp"
#include "molvanectl/Connect.hpp"
#include "molvanectl/StandardDescriptors.hpp"
#include "molvanectl/SystemConsole.hpp"

int main(int argc, char** argv) {
  using namespace molvane::ctl;

  occupyStandardDescriptors();
  // The program has the rights of its group. The Unicode library trusts its data, and would read it from the
  // folder that whoever started the program names here.
  static_cast<void>(::unsetenv("ICU_DATA"));
  // A reader that goes away ends in an error where it is written to, not in the middle of a call to the
  // helper.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));

  DescriptorSink out(STDOUT_FILENO);
  DescriptorSink err(STDERR_FILENO);
  SystemConsole console;
  CommandLine program({out, err, ::isatty(STDOUT_FILENO) == 1, ::isatty(STDERR_FILENO) == 1}, console,
                      connectToHelper);
  return static_cast<int>(program.run(std::vector<std::string>(argv + std::min(argc, 1), argv + argc)));
}
