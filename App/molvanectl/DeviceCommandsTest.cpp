#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Platform/testing/TemporaryFolder.hpp"
#include "molvanectl/testing/HelpReader.hpp"
#include "molvanectl/testing/InProcess.hpp"

namespace molvane::ctl {
namespace {

using ::testing::HasSubstr;
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

  std::string file(const std::string& name, const std::string& content = "content") const {
    std::ofstream(folder.path() + "/" + name) << content;
    return folder.path() + "/" + name;
  }

  // Whether anything was to be started; asking about a disk is not.
  bool started() {
    for (const std::string& call : program.helper.calls) {
      if (call.starts_with("start ") && call.find(R"("sourcePath":"")") == std::string::npos) return true;
    }
    return false;
  }

  TemporaryFolder folder;
  InProcess program;
};

TEST_F(DeviceCommands, SendWhatWasAskedFor) {
  const std::string here = std::filesystem::current_path().string();
  const std::string image = std::filesystem::relative(file("a b.img"));
  EXPECT_EQ(sent({"device", "write", "--yes", image, "disk4"}),
            R"(start {"writeImage":{"sourcePath":")" + here + "/" + image +
                R"(","targetBSD":"disk4","verify":true}})");
  std::filesystem::create_directory(folder.path() + "/~");
  EXPECT_EQ(sent({"device", "write", file("~/x.iso"), "/dev/rdisk12", "--no-verify", "--yes"}),
            R"(start {"writeImage":{"sourcePath":")" + folder.path() +
                R"(/~/x.iso","targetBSD":"disk12","verify":false}})");
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
  for (const char* const owner : {"-1", "4294967296", "ann", "5x", " 5", "+5"}) {
    EXPECT_THAT(sent({"device", "image", "disk4", "/tmp/x.img", "--owner", owner}),
                HasSubstr("is no user identifier"))
        << owner;
  }
  EXPECT_EQ(program.helper.connections, 0);
}

TEST_F(DeviceCommands, EraseOnlyWhatHasBeenNamedTwice) {
  const std::string image = file("x.img");
  const Words write = {"device", "write", image, "/dev/disk4"};
  const Words media = {"device", "install-media", "/Applications/I.app", "/Volumes/My USB/"};
  for (const auto& [inside, outside] : {std::pair{true, false}, {false, true}, {false, false}}) {
    program.console.hasPerson = inside;
    program.errIsTerminal = outside;
    program.console.typed = {"disk4"};
    EXPECT_EQ(program.run(write), ExitStatus::usage);
    EXPECT_THAT(program.err.written,
                HasSubstr("Everything on disk4 will be erased; where nobody can be asked"));
  }
  program.console.hasPerson = program.errIsTerminal = true;
  Words json = write;
  json.emplace_back("--json");
  EXPECT_EQ(program.run(json), ExitStatus::usage);
  EXPECT_EQ(program.helper.connections, 0);

  for (const char* const answer : {"", "y", "yes", "disk", "disk4s1", "DISK4", "disk4 disk5"}) {
    program.console.typed = {answer};
    EXPECT_EQ(program.run(write), ExitStatus::failed) << answer;
    EXPECT_THAT(program.err.written, HasSubstr("That is not disk4. Nothing was changed."));
  }
  program.console.typed = {};
  EXPECT_EQ(program.run(write), ExitStatus::failed) << "the end of input";
  EXPECT_FALSE(started());

  program.console.typed = {" disk4\r"};
  EXPECT_EQ(program.run(write), ExitStatus::done);
  EXPECT_THAT(program.err.written,
              StartsWith("molvanectl: Everything on disk4 will be erased. Type disk4 to go on.\n"));
  program.console.typed = {"My USB", "My USB"};
  EXPECT_EQ(program.run(media), ExitStatus::done);
  EXPECT_EQ(program.run({"device", "install-media", "/Applications/I.app", "/Volumes/My USB/x/.././."}),
            ExitStatus::done);
  // The volume that the helper erases, not the folder above the place where a link on it leads.
  const std::string volume = folder.path();
  std::filesystem::create_symlink("/usr/lib", volume + "/link");
  program.console.typed = {std::filesystem::path(volume).filename()};
  EXPECT_EQ(program.run({"device", "install-media", "/Applications/I.app", volume + "/link/.."}),
            ExitStatus::done);
  program.console.typed = {"/Volumes/My USB/"};
  EXPECT_EQ(program.run(media), ExitStatus::failed);
}

TEST_F(DeviceCommands, AnImageThatIsHardlyADiskIsAskedAbout) {
  const std::string udif = std::string(1000, 'x') + "koly" + std::string(508, '\0');
  const std::pair<std::string, std::string> odd[] = {
      {file("empty.img", ""), "is empty"},
      {file("a.img", std::string("\xFD\x37zXZ\0\0", 7)), "is compressed with xz"},
      {file("b.img", "\x1F\x8B\x08"), "is compressed with gzip"},
      {file("c.img", "\x28\xB5\x2F\xFDx"), "is compressed with zstd"},
      {file("d.img", "BZh9x"), "is compressed with bzip2"},
      {file("e.img", "PK\x03\x04x"), "is a zip archive"},
      {file("f.dmg", udif), "is a UDIF disk image"}};
  for (const auto& [image, words] : odd) {
    program.helper.connections = 0;
    EXPECT_EQ(program.run({"device", "write", image, "disk4", "--yes"}), ExitStatus::usage);
    EXPECT_THAT(program.err.written, HasSubstr("molvanectl: " + image + " " + words));
    EXPECT_THAT(program.err.written,
                HasSubstr("would be written as it is; where nobody can be asked, say so with --as-is"));
    EXPECT_EQ(program.helper.connections, 0);
    EXPECT_EQ(program.run({"device", "write", image, "disk4", "--yes", "--as-is", "--json"}),
              ExitStatus::done);
  }

  program.console.hasPerson = program.errIsTerminal = true;
  const Words write = {"device", "write", odd[1].first, "disk4"};
  program.helper.calls.clear();
  program.console.typed = {"disk4", "disk4"};
  EXPECT_EQ(program.run(write), ExitStatus::failed);
  EXPECT_FALSE(started());
  program.console.typed = {"as-is", "disk4"};
  EXPECT_EQ(program.run(write), ExitStatus::done);
  EXPECT_THAT(program.err.written, HasSubstr("it is. Type as-is to go on.\nmolvanectl: Everything on disk4"));

  // Parts of a magic, and what no person may read or nobody should open: the helper decides.
  for (const std::string& image : {file("g.img", std::string("\xFD\x37zX", 4)), file("h.img", "koly"),
                                   file("fifo.img"), std::string("/dev/full"), folder.path()}) {
    if (image.ends_with("fifo.img")) {
      std::filesystem::remove(image);
      ASSERT_EQ(::mkfifo(image.c_str(), 0600), 0);
    }
    EXPECT_EQ(program.run({"device", "write", image, "disk4", "--yes"}), ExitStatus::done) << image;
  }
  const std::string missing = folder.path() + "/none.img";
  for (const std::string& name : {missing, folder.path() + "/none/../none.img", missing + "/"}) {
    EXPECT_EQ(program.run({"device", "write", name, "disk4"}), ExitStatus::failed);
    EXPECT_EQ(program.err.written, "molvanectl: There is no file " + missing + ".\n");
  }
}

TEST_F(DeviceCommands, ARefusalIsTheHelpersOwn) {
  program.helper.refusals["start"] = {"com.molvane.helper.policy", 10, "disk4 is an internal disk. Refused."};
  program.console.hasPerson = program.errIsTerminal = true;
  for (const char* const option : {"--yes", "--detach"}) {
    EXPECT_EQ(program.run({"device", "write", file("x.img"), "disk4", option}), ExitStatus::failed);
    EXPECT_EQ(program.err.written,
              "molvanectl: disk4 is an internal disk. Refused. (com.molvane.helper.policy, 10)\n")
        << "and no question before it";
  }
  program.helper.refusals.clear();
  program.helper.startedJob.clear();
  EXPECT_EQ(program.run({"device", "backup-destination", "/Volumes/B"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written, "molvanectl: The helper refused and gave no reason.\n");
}

TEST_F(DeviceCommands, StatusCancelAndDetachAnswerOnceAndWaitForNothing) {
  program.helper.jobs["F"] = {
      R"({"phase":"failed","bytesDone":500,"bytesTotal":2000,"badBlocks":7,"log":"Reading\nNo.","error":"No."})"};
  program.expect({
      {{"device", "status", "F"},
       ExitStatus::done,
       "failed: 500 bytes of 2.00 kB, 25%\nunreadable blocks: 7\nerror: No.\n"},
      {{"device", "status", "--log", "J"},
       ExitStatus::done,
       "finished: 5 bytes of 5 bytes, 100%\nSHA-256 abc\nDone.\n"},
      {{"device", "status", "F", "--json"},
       ExitStatus::done,
       R"({"job":"F","phase":"failed","bytesDone":500,"bytesTotal":2000,"badBlocks":7,"error":"No.",)"
       R"("log":"Reading\nNo."})"
       "\n"},
      {{"device", "status", "none"},
       ExitStatus::failed,
       "",
       "molvanectl: Unknown job: none (com.molvane.helper, 8)\n"},
      {{"device", "cancel", "J"}, ExitStatus::done, "The helper was asked to cancel the job.\n"},
      {{"device", "cancel", "J", "--json"}, ExitStatus::done, "{\"job\":\"J\",\"accepted\":true}\n"},
      {{"device", "image", "disk4", "/tmp/x.img", "--detach", "--json"},
       ExitStatus::done,
       "{\"event\":\"started\",\"job\":\"J\"}\n"},
  });
  EXPECT_EQ(program.run({"device", "status", "none", "--json"}), ExitStatus::failed);
  EXPECT_EQ(nlohmann::json::parse(program.err.written).at("job"), "none");
  EXPECT_EQ(program.run({"device", "image", "disk4", "/tmp/x.img", "--detach"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "J\n");
  EXPECT_THAT(program.err.written, HasSubstr("The helper ends some time after its last client has gone"));
  ASSERT_EQ(program.helper.calls.size(), 9U) << "no job was followed";
  EXPECT_EQ(program.helper.calls[4], "cancel J");

  program.helper.jobs["B"] = {R"({"phase":"melting","bytesDone":0,"bytesTotal":0,"badBlocks":0,"log":""})"};
  EXPECT_EQ(program.run({"device", "status", "B"}), ExitStatus::failed);
  EXPECT_THAT(program.err.written, HasSubstr("What the helper answered about the job B cannot be read: "));
  program.helper.cancels = false;
  program.expect({{{"device", "cancel", "J"},
                   ExitStatus::failed,
                   "",
                   "molvanectl: The job J has ended, or the helper does not know it.\n"}});
}

}  // namespace
}  // namespace molvane::ctl
