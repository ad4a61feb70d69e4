#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "molvanectl/DeviceProgress.hpp"
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
using Phase = DeviceJobStatus::Phase;

const std::string kDigest(64, 'a');
const NSError kUnknownJob{"com.molvane.helper", 8, "Unknown job: JOB"};

DeviceJobStatus at(Phase phase, std::int64_t done, std::int64_t total, std::string log) {
  DeviceJobStatus status;
  status.phase = phase;
  status.bytesDone = done;
  status.bytesTotal = total;
  status.log = std::move(log);
  return status;
}

/// A write of 100 MB as the helper tells of it.
std::vector<DeviceJobStatus> writing() {
  const std::string begun = "Writing /i.img → /dev/rdisk4\n";
  std::vector<DeviceJobStatus> all = {at(Phase::queued, 0, 100'000'000, ""),
                                      at(Phase::running, 25'000'000, 100'000'000, begun),
                                      at(Phase::running, 50'000'000, 100'000'000, begun),
                                      at(Phase::verifying, 30'000'000, 100'000'000, begun + "Verifying…\n"),
                                      at(Phase::finished, 100'000'000, 100'000'000,
                                         begun + "Verifying…\nVerified.\nDone. SHA-256 " + kDigest + "\n")};
  all.back().sha256 = kDigest;
  return all;
}

std::vector<DeviceJobStatus> cancelled() {
  const std::string log = writing()[3].log;
  return {at(Phase::verifying, 50, 100, log),
          at(Phase::cancelled, 50, 100, log + "Cancelled — the device is now partially written.\n")};
}

struct DeviceCommands : ::testing::Test {
  DeviceCommands() { program.helper.statuses = writing(); }

  /// The documents that jobs were started with.
  std::vector<std::string> started() const {
    std::vector<std::string> all;
    for (const std::string& call : program.helper.calls) {
      if (call.starts_with("start ")) all.push_back(call.substr(6));
    }
    return all;
  }

  InProcess program;
};

TEST_F(DeviceCommands, SendWhatWasAskedFor) {
  const std::string here = std::filesystem::current_path().string();
  const auto start = [this](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "device");
    arguments.emplace_back("--detach");
    EXPECT_EQ(program.run(arguments), ExitStatus::done) << ::testing::PrintToString(arguments);
    EXPECT_EQ(program.out.written, "JOB\n");
    return started().back();
  };
  EXPECT_EQ(start({"write", "--yes", "a b.img", "/dev/rdisk4"}),
            R"({"writeImage":{"sourcePath":")" + here + R"(/a b.img","targetBSD":"disk4","verify":true}})");
  EXPECT_EQ(start({"write", "--yes", "--no-verify", "/i.img", "disk4s1"}),
            R"({"writeImage":{"sourcePath":"/i.img","targetBSD":"disk4s1","verify":false}})");
  EXPECT_EQ(start({"image", "/dev/disk4", "/tmp/x.img"}),
            R"({"imageDevice":{"sourceBSD":"disk4","destinationPath":"/tmp/x.img","ownerUID":0}})");
  EXPECT_EQ(start({"image", "--owner", "501", "disk4", "/tmp/x.img"}),
            R"({"imageDevice":{"sourceBSD":"disk4","destinationPath":"/tmp/x.img","ownerUID":501}})");
  EXPECT_EQ(start({"install-media", "--yes", "/A.app", "/Volumes/U"}),
            R"({"createInstallMedia":{"installerAppPath":"/A.app","targetVolumePath":"/Volumes/U"}})");
  EXPECT_EQ(start({"backup-destination", "/Volumes/B"}),
            R"({"setTimeMachineDestination":{"volumePath":"/Volumes/B"}})");
  for (const char* owner : {"-1", "4294967296", "ann", "", "5 "}) {
    EXPECT_EQ(program.run({"device", "image", "--owner=" + std::string(owner), "disk4", "/tmp/x.img"}),
              ExitStatus::usage)
        << owner;
  }
}

TEST_F(DeviceCommands, DestroyNothingThatWasNotAgreedTo) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"device", "write", "/i.img", "disk4"},
        {"device", "install-media", "/A.app", "/Volumes/U"}}) {
    const std::string& what = arguments.back();
    EXPECT_EQ(program.run(arguments), ExitStatus::usage) << "nobody can be asked";
    EXPECT_THAT(program.err.written, HasSubstr("will be lost"));

    program.errIsTerminal = true;
    for (const std::string& answer : {std::string("yes"), std::string("disk"), what + " ", std::string()}) {
      program.person.typed = {answer};
      EXPECT_EQ(program.run(arguments), ExitStatus::failed) << answer;
      EXPECT_THAT(program.err.written, StartsWith("Everything on "));
      EXPECT_THAT(program.err.written, EndsWith("molvanectl: Nothing was done.\n"));
    }
    EXPECT_EQ(program.run(arguments), ExitStatus::usage) << "the terminal was closed";
    program.person.typed = {what};
    std::vector<std::string> asJson = arguments;
    asJson.emplace_back("--json");
    EXPECT_EQ(program.run(asJson), ExitStatus::usage);
    EXPECT_THAT(program.helper.calls, IsEmpty());

    EXPECT_EQ(program.run(arguments), ExitStatus::done) << what;
    EXPECT_EQ(started().size(), 1U);
    program.helper.calls.clear();
    program.errIsTerminal = false;
  }
}

TEST_F(DeviceCommands, WriteShowsTheLogAndTheTenthsWhereNobodyWatches) {
  EXPECT_EQ(program.run({"device", "write", "--yes", "/i.img", "disk4"}), ExitStatus::done);
  EXPECT_EQ(program.out.written,
            "Writing /i.img → /dev/rdisk4\n"
            "Copying: 25%, 25.0 MB of 100 MB\n"
            "Copying: 50%, 50.0 MB of 100 MB, 625 MB/s\n"
            "Verifying…\nVerifying: 30%, 30.0 MB of 100 MB\n"
            "Verified.\nDone. SHA-256 " +
                kDigest + "\n");
  EXPECT_THAT(program.err.written, IsEmpty());
}

TEST_F(DeviceCommands, WriteDrawsABarOnATerminalThatNothingElseIsMixedWith) {
  program.errIsTerminal = true;
  EXPECT_EQ(program.run({"device", "write", "--yes", "/i.img", "disk4"}), ExitStatus::done);
  EXPECT_THAT(program.err.written,
              HasSubstr("\rCopying   [##########..........]  50%  50.0 MB of 100 MB  625 MB/s  0:01\x1b[K"));
  EXPECT_THAT(program.err.written, EndsWith("\r\x1b[K")) << "the bar is gone in the end";
  EXPECT_THAT(program.out.written, Not(HasSubstr("%")));
  EXPECT_THAT(program.out.written, EndsWith("Done. SHA-256 " + kDigest + "\n"));
}

TEST_F(DeviceCommands, WriteTellsItsEventsAsJson) {
  EXPECT_EQ(program.run({"--json", "device", "write", "--yes", "/i.img", "disk4"}), ExitStatus::done);
  const std::vector<std::string> events = lines(program.out.written);
  ASSERT_EQ(events.size(), 10U) << program.out.written;
  EXPECT_EQ(events[0], R"({"event":"started","job":"JOB"})");
  EXPECT_EQ(events[2], R"({"event":"log","job":"JOB","text":"Writing /i.img → /dev/rdisk4\n"})");
  EXPECT_EQ(events[3], R"({"event":"progress","job":"JOB","phase":"running","bytesDone":25000000,)"
                       R"("bytesTotal":100000000,"badBlocks":0})");
  EXPECT_EQ(events[9], R"({"event":"ended","job":"JOB","phase":"finished","sha256":")" + kDigest +
                           R"(","badBlocks":0})");
  EXPECT_THAT(program.err.written, IsEmpty());
}

TEST_F(DeviceCommands, ToolOutputComesAsItIsWithoutAnEndOfLine) {
  program.helper.statuses = {
      at(Phase::running, 0, 0, "$ tool\nErasing: 0%... "),
      at(Phase::running, 0, 0, "$ tool\nErasing: 0%... 100%\x1b[2J"),
      at(Phase::failed, 0, 0, "$ tool\nErasing: 0%... 100%\x1b[2Jcreateinstallmedia exited 7\n")};
  program.helper.statuses.back().error = "createinstallmedia exited 7";
  const std::vector<std::string> arguments = {"device", "install-media", "--yes", "/A.app", "/Volumes/U"};
  EXPECT_EQ(program.run(arguments), ExitStatus::failed);
  EXPECT_EQ(program.out.written, "$ tool\nErasing: 0%... 100%\x1b[2J\n");
  EXPECT_EQ(program.err.written, "molvanectl: createinstallmedia exited 7\n");

  program.helper.questions = 0;
  program.outIsTerminal = true;
  EXPECT_EQ(program.run(arguments), ExitStatus::failed);
  EXPECT_EQ(program.out.written, "$ tool\nErasing: 0%... 100%\\x1b[2J\n");
}

TEST_F(DeviceCommands, RefusalsAreTheHelpers) {
  program.helper.refusals = {
      {"start", {"com.molvane.helper.policy", 10, "disk0 backs the running system. Refused."}},
      {"OTHER", kUnknownJob}};
  EXPECT_EQ(program.run({"device", "write", "--yes", "/i.img", "disk0"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written,
            "molvanectl: disk0 backs the running system. Refused. (com.molvane.helper.policy, 10)\n");
  for (const char* command : {"status", "watch"}) {
    EXPECT_EQ(program.run({"device", command, "OTHER"}), ExitStatus::failed);
    EXPECT_EQ(program.err.written, "molvanectl: Unknown job: JOB (com.molvane.helper, 8)\n") << command;
  }
  EXPECT_EQ(program.run({"device", "cancel", "OTHER"}), ExitStatus::failed);
  EXPECT_THAT(program.err.written, HasSubstr("no such job, or it has ended: OTHER"));
  EXPECT_EQ(program.run({"device", "cancel", "JOB"}), ExitStatus::done);
}

TEST_F(DeviceCommands, InterruptCancelsAndWaitsForTheOutcome) {
  program.errIsTerminal = true;
  program.helper.afterCancel = cancelled();
  program.person.interruptsAtWait = {{3, 1}};
  EXPECT_EQ(program.run({"device", "write", "--yes", "/i.img", "disk4"}), ExitStatus::failed);
  EXPECT_TRUE(program.person.isCatching);
  EXPECT_THAT(program.helper.calls,
              ElementsAre(StartsWith("start "), "status JOB", "status JOB", "status JOB", "status JOB",
                          "cancel JOB", "status JOB", "status JOB"));
  EXPECT_THAT(program.out.written, EndsWith("the device is now partially written.\n"));
  EXPECT_THAT(program.err.written, HasSubstr("Cancelling, and waiting for the job to end."));
  EXPECT_THAT(program.err.written, EndsWith("molvanectl: The job was cancelled.\n"));
}

TEST_F(DeviceCommands, SecondInterruptLeavesAJobThatDoesNotEnd) {
  program.helper.statuses.resize(2);
  for (const std::map<int, int>& interrupts : {std::map<int, int>{{2, 1}, {4, 1}}, {{2, 2}}}) {
    program.helper.calls.clear();
    program.person = {};
    program.person.interruptsAtWait = interrupts;
    EXPECT_EQ(program.run({"device", "write", "--yes", "/i.img", "disk4"}), ExitStatus::failed);
    EXPECT_EQ(std::count(program.helper.calls.begin(), program.helper.calls.end(), "cancel JOB"), 1);
    EXPECT_THAT(program.err.written, HasSubstr("It has been asked to stop; 'molvanectl device watch JOB'"));
  }
}

TEST_F(DeviceCommands, InterruptedWatchLeavesTheJobAlone) {
  program.person.interruptsAtWait = {{2, 1}};
  EXPECT_EQ(program.run({"device", "watch", "JOB"}), ExitStatus::failed);
  EXPECT_THAT(program.helper.calls, ElementsAre("status JOB", "status JOB", "status JOB"));
  EXPECT_THAT(program.err.written, HasSubstr("It goes on"));
}

TEST_F(DeviceCommands, LostConnectionIsMadeAgainAndTheJobFollowedOn) {
  program.helper.callsUntilLost = 3;
  EXPECT_EQ(program.run({"device", "write", "--yes", "/i.img", "disk4"}), ExitStatus::done);
  EXPECT_EQ(program.helper.connections, 2);
  EXPECT_THAT(program.out.written, EndsWith("Done. SHA-256 " + kDigest + "\n"));
}

TEST_F(DeviceCommands, LostConnectionIsToldOfAsItIs) {
  program.helper.callsUntilLost = 3;
  program.connectionsAllowed = 1;
  EXPECT_EQ(program.run({"device", "write", "--yes", "/i.img", "disk4"}), ExitStatus::noConnection);
  EXPECT_THAT(program.err.written, HasSubstr("Whether the job still runs is not known."));

  // Somebody started the helper again, and it has forgotten the job.
  InProcess other;
  other.helper.statuses = writing();
  other.helper.callsUntilLost = 2;
  other.helper.refusalsAfterLoss = {{"JOB", kUnknownJob}};
  EXPECT_EQ(other.run({"device", "write", "--yes", "/i.img", "disk4"}), ExitStatus::noConnection);
  EXPECT_THAT(other.err.written, HasSubstr("What the job was writing is unfinished."));
}

TEST_F(DeviceCommands, StatusShowsThePhaseTheAmountAndTheLog) {
  program.helper.statuses = {at(Phase::running, 1'500'000, 3'000'000, "Reading\n")};
  program.helper.statuses[0].badBlocks = 2;
  EXPECT_EQ(program.run({"device", "status", "JOB"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "running, 1.50 MB of 3.00 MB, 2 unreadable blocks\nReading\n");
  EXPECT_EQ(program.run({"--json", "device", "status", "JOB"}), ExitStatus::done);
  EXPECT_EQ(
      program.out.written,
      "{\"job\":\"JOB\",\"phase\":\"running\",\"bytesDone\":1500000,\"bytesTotal\":3000000,\"badBlocks\":2,"
      "\"log\":\"Reading\\n\"}\n");
}

TEST(DeviceProgress, StaysWithinALineAndSaysAHundredOnlyAtTheEnd) {
  DeviceProgress progress;
  DeviceProgress::Clock::time_point now{};
  constexpr std::int64_t kTotal = 9'223'372'036'854'775'807;
  for (const std::int64_t done : {std::int64_t{0}, std::int64_t{1}, kTotal / 2, kTotal - 1}) {
    DeviceJobStatus status = at(Phase::verifying, done, kTotal, "");
    status.badBlocks = 99999;
    progress.add(status, now += std::chrono::seconds(1));
    EXPECT_LT(progress.bar().size(), 96U) << progress.bar();
    EXPECT_THAT(progress.bar(), Not(HasSubstr("100%")));
  }
  progress.add(at(Phase::verifying, kTotal, kTotal, ""), now);
  EXPECT_THAT(progress.bar(), HasSubstr("[####################] 100%"));
  EXPECT_EQ(byteText(999), "999 bytes");
  EXPECT_EQ(byteText(1000), "1.00 kB");
  EXPECT_EQ(byteText(999'600), "1.00 MB");
}

TEST(DeviceProgress, RateIsThatOfTheLastSeconds) {
  DeviceProgress progress;
  DeviceProgress::Clock::time_point now{};
  std::int64_t done = 0;
  for (int second = 0; second < 60; ++second) {
    progress.add(at(Phase::running, done, 1'000'000'000'000, ""), now);
    now += std::chrono::seconds(1);
    done += second < 50 ? 1'000'000'000 : 10'000'000;
  }
  EXPECT_THAT(progress.bar(), HasSubstr("10.0 MB/s")) << progress.bar();
  progress.add(at(Phase::verifying, 0, 1'000'000'000'000, ""), now);
  EXPECT_THAT(progress.bar(), Not(HasSubstr("/s"))) << "the pass has just begun";
}

}  // namespace
}  // namespace molvane::ctl
