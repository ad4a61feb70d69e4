#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "molvanectl/testing/HelpReader.hpp"
#include "molvanectl/testing/InProcess.hpp"

namespace molvane::ctl {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const std::string kDone =
    R"({"phase":"finished","bytesDone":5,"bytesTotal":5,"badBlocks":0,"log":"Done.\n","sha256":"abc"})";

struct DeviceCommands : ::testing::Test {
  DeviceCommands() {
    program.helper.startedJob = "J";
    program.helper.jobs["J"] = {kDone};
  }

  // What the helper was sent.
  std::string sent(const Words& words) {
    program.helper.calls.clear();
    program.run(words);
    return program.helper.calls.empty() ? program.err.written : program.helper.calls.front();
  }

  InProcess program;
};

TEST_F(DeviceCommands, SendWhatWasAskedFor) {
  const std::string here = std::filesystem::current_path().string();
  EXPECT_EQ(
      sent({"device", "write", "--yes", "a b.img", "disk4"}),
      R"(start {"writeImage":{"sourcePath":")" + here + R"(/a b.img","targetBSD":"disk4","verify":true}})");
  EXPECT_EQ(sent({"device", "write", "/~/x.iso", "/dev/rdisk12", "--no-verify", "--yes"}),
            R"(start {"writeImage":{"sourcePath":"/~/x.iso","targetBSD":"disk12","verify":false}})");
  EXPECT_EQ(sent({"device", "image", "/dev/disk4", "x.img"}),
            R"(start {"imageDevice":{"sourceBSD":"disk4","destinationPath":")" + here +
                R"(/x.img","ownerUID":0}})");
  EXPECT_EQ(
      sent({"device", "image", "rdisk4", "/tmp/x.img", "--owner", "4294967295"}),
      R"(start {"imageDevice":{"sourceBSD":"rdisk4","destinationPath":"/tmp/x.img","ownerUID":4294967295}})");
  EXPECT_EQ(sent({"device", "install-media", "--yes", "/Applications/Install macOS X.app", "/Volumes/USB"}),
            R"(start {"createInstallMedia":{"installerAppPath":"/Applications/Install macOS X.app",)"
            R"("targetVolumePath":"/Volumes/USB"}})");
  EXPECT_EQ(sent({"device", "backup-destination", "/Volumes/B"}),
            R"(start {"setTimeMachineDestination":{"volumePath":"/Volumes/B"}})");

  program.helper.connections = 0;
  for (const char* const owner : {"", "-1", "4294967296", "ann", "5x", " 5", "+5"}) {
    EXPECT_THAT(sent({"device", "image", "disk4", "/tmp/x.img", "--owner", owner}),
                HasSubstr("is no user identifier"))
        << owner;
  }
  EXPECT_EQ(program.helper.connections, 0);
}

TEST_F(DeviceCommands, EraseOnlyWhatHasBeenNamedTwice) {
  const Words write = {"device", "write", "/x.img", "/dev/disk4"};
  const Words media = {"device", "install-media", "/Applications/I.app", "/Volumes/My USB/"};
  for (const auto& [inside, outside] : {std::pair{true, false}, {false, true}, {false, false}}) {
    program.console.hasPerson = inside;
    program.errIsTerminal = outside;
    program.console.typed = {"disk4"};
    EXPECT_EQ(program.run(write), ExitStatus::usage);
    EXPECT_THAT(program.err.written, HasSubstr("this erases everything on disk4; where nobody can be asked"));
  }
  program.console.hasPerson = program.errIsTerminal = true;
  Words json = write;
  json.emplace_back("--json");
  EXPECT_EQ(program.run(json), ExitStatus::usage);

  for (const char* const answer : {"", "y", "yes", "disk", "disk4s1", "DISK4", "disk4 disk5"}) {
    program.console.typed = {answer};
    EXPECT_EQ(program.run(write), ExitStatus::failed) << answer;
    EXPECT_THAT(program.err.written, HasSubstr("That is not disk4. Nothing was started."));
  }
  program.console.typed = {};
  EXPECT_EQ(program.run(write), ExitStatus::failed) << "the end of input";
  program.console.typed = {""};
  EXPECT_EQ(program.run({"device", "write", "/x.img", ""}), ExitStatus::failed);
  EXPECT_EQ(program.helper.connections, 0);

  program.console.typed = {" disk4\r"};
  EXPECT_EQ(program.run(write), ExitStatus::done);
  EXPECT_THAT(program.err.written,
              StartsWith("molvanectl: Everything on disk4 will be erased. Type disk4 to go on.\n"));
  program.console.typed = {"My USB", "My USB"};
  EXPECT_EQ(program.run(media), ExitStatus::done);
  EXPECT_EQ(program.run({"device", "install-media", "/Applications/I.app", "/Volumes/My USB/x/.././."}),
            ExitStatus::done);
  program.console.typed = {"/Volumes/My USB/"};
  EXPECT_EQ(program.run(media), ExitStatus::failed);
}

TEST_F(DeviceCommands, DetachPrintsTheIdentifierAndLeavesTheJob) {
  EXPECT_EQ(program.run({"device", "image", "disk4", "/tmp/x.img", "--detach"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "J\n");
  EXPECT_THAT(program.err.written, HasSubstr("The helper ends some time after its last client has gone"));
  EXPECT_EQ(program.helper.calls.size(), 1U);

  EXPECT_EQ(program.run({"device", "image", "disk4", "/tmp/x.img", "--detach", "--json"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "{\"event\":\"started\",\"job\":\"J\"}\n");
  EXPECT_THAT(program.err.written, IsEmpty());
}

TEST_F(DeviceCommands, ARefusalIsTheHelpersOwn) {
  program.helper.refusals["start"] = {"com.molvane.helper.policy", 10, "disk4 is an internal disk. Refused."};
  EXPECT_EQ(program.run({"device", "write", "/x.img", "disk4", "--yes"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written,
            "molvanectl: disk4 is an internal disk. Refused. (com.molvane.helper.policy, 10)\n");
  program.helper.refusals.clear();
  program.helper.startedJob.clear();
  EXPECT_EQ(program.run({"device", "backup-destination", "/Volumes/B"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written, "molvanectl: The helper said no and gave no reason.\n");
}

TEST_F(DeviceCommands, StatusPrintsAJobOnce) {
  program.helper.jobs["F"] = {
      R"({"phase":"failed","bytesDone":500,"bytesTotal":2000,"badBlocks":7,"log":"Reading\nNo.","error":"No."})"};
  EXPECT_EQ(program.run({"device", "status", "F"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "failed: 500 bytes of 2.00 kB, 25%\nunreadable blocks: 7\nerror: No.\n");
  EXPECT_EQ(program.run({"device", "status", "--log", "J"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "finished: 5 bytes of 5 bytes, 100%\nSHA-256 abc\nDone.\n");
  EXPECT_EQ(program.run({"device", "status", "F", "--json"}), ExitStatus::done);
  EXPECT_EQ(program.out.written,
            R"({"job":"F","phase":"failed","bytesDone":500,"bytesTotal":2000,"badBlocks":7,"error":"No.",)"
            R"("log":"Reading\nNo."})"
            "\n");

  EXPECT_EQ(program.run({"device", "status", "none"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written, "molvanectl: Unknown job: none (com.molvane.helper, 8)\n");
  EXPECT_EQ(program.run({"device", "status", "none", "--json"}), ExitStatus::failed);
  EXPECT_EQ(nlohmann::json::parse(program.err.written).at("job"), "none");

  program.helper.jobs["B"] = {R"({"phase":"melting","bytesDone":0,"bytesTotal":0,"badBlocks":0,"log":""})"};
  EXPECT_EQ(program.run({"device", "status", "B"}), ExitStatus::failed);
  EXPECT_THAT(program.err.written, HasSubstr("What the helper answered about the job B cannot be read: "));
}

TEST_F(DeviceCommands, CancelAsksAndDoesNotWait) {
  EXPECT_EQ(program.run({"device", "cancel", "J"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "The helper was asked to cancel the job.\n");
  EXPECT_THAT(program.helper.calls, ElementsAre("cancel J"));
  EXPECT_EQ(program.run({"device", "cancel", "J", "--json"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "{\"job\":\"J\",\"accepted\":true}\n");

  program.helper.cancels = false;
  EXPECT_EQ(program.run({"device", "cancel", "J"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written, "molvanectl: The job J has ended, or the helper does not know it.\n");
}

}  // namespace
}  // namespace molvane::ctl
