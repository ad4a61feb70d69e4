#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "Core/Scheduling/ScheduleStore.hpp"
#include "Platform/testing/TemporaryFolder.hpp"
#include "molvanectl/testing/InProcess.hpp"
#include "molvanectl/testing/Shell.hpp"

namespace molvane::ctl {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

// `text` is written as in printf's format.
ShellResult pasteCheck(const std::string& text, const std::string& options = {}) {
  return shell("printf '" + text + "' | $M paste-check " + options);
}

TEST(PasteCheck, SaysWhatHidesWhereAndAsksByItsStatus) {
  ShellResult result = pasteCheck(R"(ls -l\n)");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "1 line would run.\nNothing suspicious found.\n");

  result = pasteCheck("ok\\ncd \u202E\u0440x\\n\\033");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output,
            "2:4: bidi U+202E RIGHT-TO-LEFT OVERRIDE\n"
            "2:5: lookalike U+0440 CYRILLIC SMALL LETTER ER\n"
            "3:1: control U+001B\n"
            "3 lines would run.\n"
            "Look again before you paste it.\n");

  EXPECT_EQ(pasteCheck(R"(a\nb)").status, 1);
  EXPECT_EQ(pasteCheck(R"(a\nb)", "--bracketed").status, 0);
  EXPECT_EQ(pasteCheck("\u200B", "--bracketed").status, 1);
  for (const char* const file : {"-", "/dev/stdin", "<(printf 'x\\a')"}) {
    EXPECT_EQ(pasteCheck(R"(x\a)", std::string("--file ") + file).output,
              "1:2: control U+0007\nLook again before you paste it.\n")
        << file;
  }
}

TEST(PasteCheck, TroubleIsNoFinding) {
  EXPECT_EQ(shell("$M paste-check </dev/null").status, 0);
  for (const auto& [words, said] :
       {std::pair{"<&-", "Standard input could not be read: Bad file descriptor."},
        {"</", "Standard input could not be read: Is a directory."},
        {"--file /", "/ cannot be read: Is a directory."},
        {"--file /none", "There is no file /none."},
        {"--file /dev/zero", "The text is longer than 64 MiB."},
        {"</dev/null >/dev/full", "No space left on device."}}) {
    const ShellResult result = shell(std::string("$M paste-check 2>&1 ") + words);
    EXPECT_EQ(result.status, 2) << words;
    EXPECT_THAT(result.output, HasSubstr(said));
  }
}

TEST(PasteCheck, TellsWhatCannotBeSeenEvenWhereNothingIsAsked) {
  const std::string tags = "\U000E006C\U000E0073";
  EXPECT_EQ(pasteCheck("ls" + tags + "\u00A0⟨\\t").output,
            "1:3: unseen U+E006C TAG LATIN SMALL LETTER L\n"
            "1:4: unseen U+E0073 TAG LATIN SMALL LETTER S\n"
            "1:5: unseen U+00A0 NO-BREAK SPACE\n"
            "There is 1 tab.\n"
            "It needs no confirmation, but holds characters that cannot be seen.\n");
  EXPECT_EQ(pasteCheck("ls" + tags).status, 0);
  EXPECT_THAT(pasteCheck("ls" + tags + "\u200B").output, HasSubstr("U+200B ZERO WIDTH SPACE\nLook again"));
  const nlohmann::json answer = nlohmann::json::parse(pasteCheck("ls" + tags, "--json").output);
  EXPECT_EQ(answer.at("places"), nlohmann::json::array());
  EXPECT_EQ(answer.at("unseen").at(1).at("scalar"), "U+E0073");
}

TEST(PasteCheck, AnswersWithJson) {
  const ShellResult result = pasteCheck("l\u200Bs\\n\\377", "--json");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(nlohmann::json::parse(result.output), nlohmann::json::parse(R"({
      "needsConfirmation": true, "findings": {"invisible": 1, "runs": 2}, "omitted": 0, "unseen": [],
      "places": [{"finding": "invisible", "line": 1, "column": 2, "scalar": "U+200B", "name": "ZERO WIDTH SPACE"}],
      "oneLine": "ls \uFFFD", "revealed": "l⟨U+200B⟩s⟨U+000A⟩\uFFFD"})"));
}

TEST(PasteCheck, ListsNoMoreThanAPersonCanRead) {
  const ShellResult result = shell("printf '\\033%.0s' $(seq 1500) | $M paste-check");
  EXPECT_THAT(result.output, HasSubstr("\n1:1000: control U+001B\nand 500 more\n"));
  EXPECT_THAT(result.output, Not(HasSubstr("1:1001:")));
  EXPECT_THAT(shell("{ printf '\\302\\240%.0s' $(seq 1500); printf '\\a'; } | $M paste-check").output,
              HasSubstr("\n1:1501: control U+0007\nand 500 more\n"));
}

TEST(PasteCheck, RevealsOnATerminalInColours) {
  const auto onTerminal = [](const std::string& environment) {
    return outputOf("script -qefc 'printf \"a\\\\033[2J\\\\n\\\\321\\\\200b\\\\n\" | " + environment +
                    " $M paste-check; true' /dev/null </dev/null");
  };
  EXPECT_THAT(onTerminal("TERM=xterm"), StartsWith("a\x1b[1;31m⟨U+001B⟩\x1b[0m[2J\x1b[2m⟨U+000A⟩\x1b[0m\r\n"
                                                   "\x1b[1;33m⟨U+0440⟩\x1b[0mb\x1b[2m⟨U+000A⟩\x1b[0m\r\n"
                                                   "1:2: control U+001B\r\n"));
  for (const char* const plain : {"NO_COLOR=1", "TERM=dumb"}) {
    EXPECT_THAT(onTerminal(plain), StartsWith("a⟨U+001B⟩[2J⟨U+000A⟩\r\n⟨U+0440⟩b⟨U+000A⟩\r\n"));
  }
}

class ScheduleCommands : public ::testing::Test {
 protected:
  ScheduleCommands() {
    ScheduleStore store(file, Calendar(TimeZone::utc()));
    store.upsert(
        {id, "Clean \x1b caches", "cleaner", "clean", {}, Schedule::daily(9, 30), true, false, {}, nine, {}});
    store.upsert(
        {Uuid::random(), "Idle", "cleaner", "scan", {}, Schedule::everyHours(6), false, false, {}, {}, {}});
    store.upsert({Uuid::random(),
                  "Copy",
                  "copier",
                  "run",
                  {},
                  Schedule::weekly(2, 9, 0),
                  true,
                  true,
                  {},
                  Date{nine.secondsSinceReference - 3600},
                  {}});
  }

  TemporaryFolder folder;
  std::string file = folder.path() + "/tasks.jsonl";
  Uuid id = Uuid::random();
  Date nine = *dateFromIso8601("2026-11-22T09:30:00Z");
  InProcess program;
};

TEST_F(ScheduleCommands, NextListsTheTasksInTheOrderOfTheirRuns) {
  EXPECT_EQ(
      program.run({"schedule", "next", file, "--zone", "America/St_Johns", "--at", "2026-11-22T09:00:00Z"}),
      ExitStatus::done);
  EXPECT_EQ(program.out.written,
            "2026-11-22 05:00:00 -03:30  Copy\n"
            "                            Every Monday at 09:00; copier run; its time has come\n"
            "2026-11-22 06:00:00 -03:30  Clean caches\n"
            "                            Every day at 09:30; cleaner clean\n"
            "never                       Idle\n"
            "                            Every 6 hours; cleaner scan; disabled\n");
  EXPECT_EQ(program.helper.connections, 0);

  EXPECT_EQ(program.run({"schedule", "next", file, "--json"}), ExitStatus::done);
  const std::string second = program.out.written.substr(program.out.written.find('\n') + 1);
  EXPECT_EQ(nlohmann::json::parse(second.substr(0, second.find('\n'))),
            nlohmann::json({{"id", id.text()},
                            {"title", "Clean \x1b caches"},
                            {"toolID", "cleaner"},
                            {"actionID", "clean"},
                            {"schedule", "Every day at 09:30"},
                            {"isEnabled", true},
                            {"nextRun", "2026-11-22T09:30:00Z"},
                            {"lastRun", nullptr}}));
}

TEST_F(ScheduleCommands, DueKnowsTheGraceOfATask) {
  const auto due = [&](const std::string& at, const std::string& grace) {
    EXPECT_EQ(program.run({"schedule", "due", file, "--json", "--at", at, "--grace", grace}),
              ExitStatus::done);
    std::string titles;
    for (std::size_t at = 0; (at = program.out.written.find("\"title\":\"", at)) != std::string::npos; ++at) {
      titles += program.out.written[at + 9];
    }
    return titles;
  };
  EXPECT_EQ(due("2026-11-22T08:29:59Z", "300"), "");
  EXPECT_EQ(due("2026-11-22T08:30:00Z", "300"), "C");
  EXPECT_EQ(due("2026-11-22T10:35:00+01:00", "300"), "CC");
  EXPECT_EQ(due("2026-11-22T09:35:01Z", "300"), "C");
  EXPECT_EQ(due("2026-11-22T09:35:01Z", "301.5"), "CC");
}

TEST_F(ScheduleCommands, RefusesWhatItCannotReadAndTouchesNothing) {
  for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--at", "yesterday"},
                                                {"--zone", "Nowhere"},
                                                {"--grace", "-1"},
                                                {"--grace", "5m"}}) {
    std::vector<std::string> arguments = {"schedule", "due", file};
    arguments.insert(arguments.end(), wrong.begin(), wrong.end());
    EXPECT_EQ(program.run(arguments), ExitStatus::usage) << wrong[1];
    EXPECT_THAT(program.err.written, HasSubstr("'" + wrong[1] + "'"));
    EXPECT_THAT(program.out.written, IsEmpty());
  }
  EXPECT_EQ(program.run({"schedule", "next", folder.path() + "/none"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written, "molvanectl: There is no file " + folder.path() + "/none.\n");

  std::ofstream(file, std::ios::app) << "{}\n";
  EXPECT_EQ(program.run({"schedule", "next", file}), ExitStatus::failed);
  EXPECT_THAT(program.err.written, HasSubstr(file + " is no file of tasks: line 5: "));
  EXPECT_TRUE(std::filesystem::exists(file));

  std::ofstream(file) << "{\"version\":2}\n";
  EXPECT_EQ(program.run({"schedule", "next", file}), ExitStatus::failed);
  EXPECT_THAT(program.err.written, HasSubstr(file + ": A newer version wrote this file of tasks (line 1: "));
}

}  // namespace
}  // namespace molvane::ctl
