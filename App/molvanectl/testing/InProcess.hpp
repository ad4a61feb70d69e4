#pragma once

#include <memory>
#include <string>
#include <vector>

#include "molvanectl/CommandLine.hpp"
#include "molvanectl/testing/FakeHelper.hpp"
#include "molvanectl/testing/FakePerson.hpp"
#include "molvanectl/testing/StringSink.hpp"

namespace molvane::ctl {

/// Runs the program in this process against a fake helper.
struct InProcess {
  FakeHelperState helper;
  FakePerson person;
  StringSink out;
  StringSink err;
  bool outIsTerminal = false;
  bool errIsTerminal = false;
  std::string connectedTo;       ///< the socket's path
  std::string cannotConnect;     ///< why, if it cannot
  int connectionsAllowed = 100;  ///< no more than these succeed

  /// Starts with empty output each time.
  ExitStatus run(const std::vector<std::string>& arguments) {
    out.written.clear();
    err.written.clear();
    CommandLine program({out, err, outIsTerminal, errIsTerminal}, person,
                        [this](const std::string& socketPath) {
                          connectedTo = socketPath;
                          if (helper.connections >= connectionsAllowed)
                            throw ConnectionError("there is no helper");
                          if (!cannotConnect.empty()) throw ConnectionError(cannotConnect);
                          return std::make_unique<FakeHelper>(helper);
                        });
    return program.run(arguments);
  }
};

}  // namespace molvane::ctl
