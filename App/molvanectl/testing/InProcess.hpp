#pragma once

#include <gtest/gtest.h>

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

  /// All that a call says and how it ends.
  struct Call {
    std::vector<std::string> words;
    ExitStatus status = ExitStatus::done;
    std::string out = {};
    std::string err = {};
  };

  /// Makes the calls in turn.
  void expect(const std::vector<Call>& calls) {
    for (const Call& call : calls) {
      SCOPED_TRACE(::testing::PrintToString(call.words));
      EXPECT_EQ(run(call.words), call.status);
      EXPECT_EQ(out.written, call.out);
      EXPECT_EQ(err.written, call.err);
    }
  }
};

}  // namespace molvane::ctl
