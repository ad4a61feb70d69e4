#pragma once

#include <memory>
#include <string>
#include <vector>

#include "molvanectl/CommandLine.hpp"
#include "molvanectl/testing/FakeConsole.hpp"
#include "molvanectl/testing/FakeHelper.hpp"
#include "molvanectl/testing/StringSink.hpp"

namespace molvane::ctl {

/// Runs the program in this process against a fake helper.
struct InProcess {
  FakeHelperState helper;
  StringSink out;
  StringSink err;
  FakeConsole console;
  bool outIsTerminal = false;
  bool errIsTerminal = false;
  std::string connectedTo;    ///< the socket's path
  std::string cannotConnect;  ///< why, if it cannot

  /// Starts with empty output each time.
  ExitStatus run(const std::vector<std::string>& arguments) {
    out.written.clear();
    err.written.clear();
    console.waits = 0;
    const Streams streams{out, err, outIsTerminal, errIsTerminal};
    CommandLine program(streams, console, [this](const std::string& socketPath) {
      connectedTo = socketPath;
      if (!cannotConnect.empty()) throw ConnectionError(cannotConnect);
      return std::make_unique<FakeHelper>(helper);
    });
    return program.run(arguments);
  }
};

}  // namespace molvane::ctl
