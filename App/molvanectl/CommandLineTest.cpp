#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "molvanectl/Parser.hpp"
#include "molvanectl/testing/HelpReader.hpp"
#include "molvanectl/testing/InProcess.hpp"

namespace molvane::ctl {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

TEST(CommandLineParsing, NamesWhatIsWrongPointsToHelpAndAsksNothing) {
  struct Case {
    Words words;
    const char* problem;
    const char* help;
  };
  const Case cases[] = {
      {{}, "a command is missing", "molvanectl --help"},
      {{"pnig"}, "unknown command 'pnig'", "molvanectl --help"},
      {{"task"}, "a command is missing", "molvanectl task --help"},
      {{"task", "ruin"}, "unknown command 'ruin'", "molvanectl task --help"},
      {{"task", "run"}, "ID is required", "molvanectl task run --help"},
      {{"task", "run", "a", "b"}, "unexpected argument 'b'", "molvanectl task run --help"},
      {{"size"}, "PATH is required", "molvanectl size --help"},
      {{"remove", "--force", "/a"}, "unknown option '--force'", "molvanectl remove --help"},
      {{"remove", "-r", "/a"}, "unknown option '-r'", "molvanectl remove --help"},
      {{"-v", "remove", "/a"}, "unknown option '-v'", "molvanectl remove --help"},
      {{"ping", "/a"}, "unexpected argument '/a'", "molvanectl ping --help"},
      {{"ping", "--socket"}, "--socket needs a value", "molvanectl ping --help"},
      {{"--socket=", "ping"}, "--socket: the value is empty", "molvanectl"},
      {{"paste-check", "--file", ""}, "--file: the value is empty", "molvanectl paste-check --help"},
      {{"account", "delete", ""}, "NAME: the value is empty", "molvanectl account delete --help"},
      {{"device", "write", "/x.img", "", "--yes"},
       "DISK: the value is empty",
       "molvanectl device write --help"},
      {{"--json=false", "ping"}, "--json takes no value", "molvanectl"},
      {{"remove", "/a", "++"}, "unexpected argument '++'", "molvanectl remove --help"},
      {{"remove", "/a", "/b\xff"}, "is not valid UTF-8", "molvanectl remove --help"},
  };
  InProcess program;
  for (const Case& each : cases) {
    SCOPED_TRACE(::testing::PrintToString(each.words));
    EXPECT_EQ(program.run(each.words), ExitStatus::usage);
    EXPECT_THAT(program.out.written, IsEmpty());
    EXPECT_THAT(lines(program.err.written),
                ElementsAre(AllOf(StartsWith("molvanectl: "), HasSubstr(each.problem)),
                            AllOf(StartsWith("Try '"), HasSubstr(each.help))));
  }
  EXPECT_EQ(program.helper.connections, 0);

  EXPECT_EQ(program.run({"task", "ruin", "--json"}), ExitStatus::usage);
  EXPECT_EQ(program.err.written, R"({"error":{"domain":"com.molvane.molvanectl","code":2,"description":)"
                                 R"("unknown command 'ruin'. Try 'molvanectl task --help'."}})"
                                 "\n");
}

TEST(CommandLineParsing, PathsArriveByteForByte) {
  const Words paths = {"[/a,/b]", "[]",  "{}",    "%%",  "ping",   "task", "run",     "",
                       " x ",     "a=b", "\"q\"", "'q'", "\\",     "é",    "@file",   "/x,/y",
                       "-",       "--",  "--",    "-v",  "--json", "++",   "--socket"};
  Words words = {"remove"};
  words.insert(words.end(), paths.begin(), paths.end());
  InProcess program;
  EXPECT_EQ(program.run(words), ExitStatus::failed);

  Words expected;
  for (const std::string& path : paths) expected.push_back("remove " + path);
  // The first "--" ends the options and is no path.
  expected.erase(std::find(expected.begin(), expected.end(), "remove --"));
  EXPECT_EQ(program.helper.calls, expected);
}

TEST(CommandLineParsing, GlobalOptionsStandAnywhere) {
  for (const Words& words : {Words{"--json", "--socket", "/run/other", "ping"},
                             Words{"ping", "--socket=/run/first", "--json", "--socket=/run/other"}}) {
    InProcess program;
    EXPECT_EQ(program.run(words), ExitStatus::done);
    EXPECT_EQ(program.connectedTo, "/run/other");
    EXPECT_EQ(program.out.written, "{\"reply\":\"pong\"}\n");
  }
  InProcess program;
  EXPECT_EQ(program.run({"ping"}), ExitStatus::done);
  EXPECT_EQ(program.connectedTo, kDefaultSocketPath);
}

TEST(CommandLineHelp, StandsAtEveryLevelWithinEightyColumnsAndWithAnExampleThatParses) {
  InProcess program;
  program.cannotConnect = "not here";
  program.console.hasPerson = program.errIsTerminal = true;  // some ask before they erase
  const std::vector<HelpEntry> entries = readAllHelp(program);
  EXPECT_GT(entries.size(), 5U);
  for (const HelpEntry& entry : entries) {
    SCOPED_TRACE(::testing::PrintToString(entry.name));
    EXPECT_THAT(entry.help, StartsWith("Usage: molvanectl "));
    for (const std::string& line : lines(entry.help)) {
      EXPECT_LE(line.size(), 80U) << line;
      EXPECT_THAT(line, Not(EndsWith(" ")));
    }

    const std::string heading = "Example:\n  molvanectl ";
    const auto example = entry.help.find(heading);
    ASSERT_NE(example, std::string::npos);
    std::istringstream rest(entry.help.substr(example + heading.size()));
    const Words words{std::istream_iterator<std::string>(rest), {}};
    program.run(words);
    EXPECT_THAT(program.err.written, Not(HasSubstr("Try '")));
  }
}

TEST(CommandLineHelp, WinsOverWhatIsWrongBesideIt) {
  InProcess program;
  EXPECT_EQ(program.run({"size", "--help", "--nonsense"}), ExitStatus::done);
  EXPECT_THAT(program.out.written, StartsWith("Usage: molvanectl size [OPTION]... PATH...\n"));
  EXPECT_EQ(program.run({"--version"}), ExitStatus::done);
  EXPECT_THAT(program.out.written, ::testing::MatchesRegex("molvanectl [0-9.]+\n"));
  EXPECT_EQ(program.helper.connections, 0);
}

TEST(CommandLineConnection, SaysWhyItCannotConnectAndEndsWithThree) {
  InProcess program;
  program.cannotConnect = "Nothing listens.";
  const std::string json =
      R"({"error":{"domain":"com.molvane.molvanectl","code":3,"description":"Nothing listens."}})";
  program.expect({{{"ping"}, ExitStatus::noConnection, "", "molvanectl: Nothing listens.\n"},
                  {{"ping", "--json"}, ExitStatus::noConnection, "", json + "\n"}});
}

TEST(CommandLineConnection, ALostOneStopsTheWorkAndClaimsNothing) {
  InProcess program;
  program.helper.sizes = {{"/a", 1}, {"/b", 2}, {"/c", 3}};
  program.helper.callsUntilLost = 1;
  EXPECT_EQ(program.run({"remove", "-v", "/a", "/b", "/c"}), ExitStatus::noConnection);
  EXPECT_EQ(program.out.written, "removed /a\n");
  EXPECT_EQ(program.err.written,
            "molvanectl: The connection to the helper was lost before it answered. Whether it did what was "
            "asked is "
            "not known.\n");
  EXPECT_THAT(program.helper.calls, ElementsAre("remove /a"));

  InProcess refused;
  refused.helper.callsUntilLost = 0;
  EXPECT_EQ(refused.run({"ping"}), ExitStatus::noConnection);
  EXPECT_THAT(refused.err.written,
              HasSubstr("not known. The helper also closes the connection when it does not accept this"));
}

TEST(CommandLineOutput, WhatCannotBeWrittenIsAFailure) {
  InProcess program;
  program.out.failure = ENOSPC;
  for (const Words& words :
       {Words{"ping"}, Words{"--help"}, Words{"task", "list"}, Words{"ping", "--json"}}) {
    EXPECT_EQ(program.run(words), ExitStatus::failed) << ::testing::PrintToString(words);
    EXPECT_THAT(program.err.written,
                HasSubstr("Standard output could not be written: No space left on device."));
  }

  program.out.failure = EPIPE;
  EXPECT_EQ(program.run({"task", "list"}), ExitStatus::failed);
  EXPECT_THAT(program.err.written, IsEmpty());

  program.out.failure = 0;
  program.err.failure = EIO;
  program.helper.refusals["/a"] = {"d", 1, "no"};
  EXPECT_EQ(program.run({"size", "/a", "/b"}), ExitStatus::failed);
  EXPECT_EQ(program.out.written, "0\t/b\n");
}

}  // namespace
}  // namespace molvane::ctl
