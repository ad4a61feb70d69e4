#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "HelperProtocol/DeviceJobStatus.hpp"
#include "Platform/testing/TemporaryFolder.hpp"
#include "molvanectl/testing/HelpReader.hpp"
#include "molvanectl/testing/InProcess.hpp"

namespace molvane::ctl {
namespace {

using Phase = DeviceJobStatus::Phase;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

DeviceJobStatus status(Phase phase, std::int64_t done = 0, std::int64_t total = 0,
                       const std::string& log = {}) {
  DeviceJobStatus made;
  made.phase = phase;
  made.bytesDone = done;
  made.bytesTotal = total;
  made.log = log;
  return made;
}

DeviceJobStatus failed(const std::string& error, const std::string& log) {
  DeviceJobStatus made = status(Phase::failed, 0, 0, log + error + "\n");
  made.error = error;
  return made;
}

struct DeviceFollowing : ::testing::Test {
  DeviceFollowing() {
    std::ofstream(folder.path() + "/x.img") << "content";
    program.helper.startedJob = "J";
  }

  // The helper answers with these in turn.
  void script(const std::vector<DeviceJobStatus>& statuses) {
    program.helper.jobs["J"].clear();
    program.helper.calls.clear();
    for (const DeviceJobStatus& each : statuses) program.helper.jobs["J"].push_back(encodedJson(each));
  }

  void onTerminal() { program.outIsTerminal = program.errIsTerminal = true; }

  int cancellations() {
    return static_cast<int>(std::count(program.helper.calls.begin(), program.helper.calls.end(), "cancel J"));
  }

  TemporaryFolder folder;
  InProcess program;
  const Words write = {"device", "write", folder.path() + "/x.img", "disk4", "--yes"};
  const Words image = {"device", "image", "disk4", "/tmp/x.img"};
  const Words media = {"device", "install-media", "/Applications/I.app", "/Volumes/USB", "--yes"};
  const Words backup = {"device", "backup-destination", "/Volumes/B"};
};

TEST_F(DeviceFollowing, LinesTellEachPhaseAndEachTenth) {
  std::vector<DeviceJobStatus> statuses = {status(Phase::queued, 0, 1000)};
  for (int i = 0; i <= 100; ++i) statuses.push_back(status(Phase::running, i * 10, 1000, "Writing x\n"));
  statuses.push_back(status(Phase::verifying, 0, 1000));
  statuses.push_back(status(Phase::finished, 1000, 1000, "Writing x\nDone.\n"));
  statuses.back().sha256 = "0123abcd";
  script(statuses);
  EXPECT_EQ(program.run(write), ExitStatus::done);
  EXPECT_EQ(program.out.written,
            "The image has been written to disk4 and read back: they are the same.\nSHA-256 0123abcd\n");
  const std::vector<std::string> all = lines(program.err.written);
  ASSERT_EQ(all.size(), 14U);
  EXPECT_EQ(all[0], "molvanectl: job J");
  EXPECT_EQ(all[1], "molvanectl: queued");
  EXPECT_EQ(all[2], "molvanectl: writing: 0%, 0 bytes of 1.00 kB");
  EXPECT_EQ(all[7], "molvanectl: writing: 50%, 500 bytes of 1.00 kB, 40 bytes/s, 0:12 left");
  EXPECT_EQ(all[12], "molvanectl: writing: 100%, 1.00 kB of 1.00 kB, 40 bytes/s");
  EXPECT_EQ(all[13], "molvanectl: verifying: 0%, 0 bytes of 1.00 kB");

  // A minute without a tenth is told as well.
  statuses.assign(482, status(Phase::running, 1, 1000));
  statuses.push_back(status(Phase::finished));
  script(statuses);
  EXPECT_EQ(program.run(image), ExitStatus::done);
  EXPECT_EQ(lines(program.err.written).size(), 4U) << program.err.written;
}

TEST_F(DeviceFollowing, TheBarIsOneLineAndGoneAtTheEnd) {
  onTerminal();
  program.console.width = 40;
  script({status(Phase::queued, 0, 1000), status(Phase::running, 250, 1000),
          status(Phase::running, 250, 1000), status(Phase::running, 500, 1000),
          status(Phase::finished, 1000, 1000)});
  program.helper.jobs["J"].back() =
      R"({"phase":"finished","bytesDone":1000,"bytesTotal":1000,"badBlocks":2,"log":"Done","sha256":"ab"})";
  EXPECT_EQ(program.run(image), ExitStatus::done);
  EXPECT_EQ(program.err.written,
            "molvanectl: job J\n\rqueued\x1b[K"
            "\rreading   25%  250 bytes of 1.00 kB\x1b[K"
            "\rreading   50%  500 bytes of 1.00 kB\x1b[K\r\x1b[K");
  EXPECT_EQ(program.out.written,
            "The image of disk4 is /tmp/x.img.\n2 blocks could not be read; zeros stand in their place.\n"
            "SHA-256 ab\n");

  // A terminal that cannot draw over a line gets lines.
  program.console.canRedraw = false;
  script({status(Phase::running, 250, 1000), status(Phase::finished)});
  EXPECT_EQ(program.run(image), ExitStatus::done);
  EXPECT_THAT(program.err.written, Not(HasSubstr("\x1b")));
}

TEST_F(DeviceFollowing, EventsTellEveryChangeOnceAndTheLogInPieces) {
  DeviceJobStatus last = status(Phase::finished, 9, 9, "a\nb\nc\n");
  last.sha256 = "ff";
  script({status(Phase::queued, 0, 9), status(Phase::queued, 0, 9), status(Phase::running, 0, 9, "a\n"),
          status(Phase::running, 4, 9, "a\nb\n"), status(Phase::running, 4, 9, "a\nb\n"), last});
  Words words = write;
  words.emplace_back("--json");
  EXPECT_EQ(program.run(words), ExitStatus::done);
  EXPECT_EQ(program.out.written,
            R"({"event":"started","job":"J"}
{"event":"status","job":"J","phase":"queued","bytesDone":0,"bytesTotal":9,"badBlocks":0}
{"event":"status","job":"J","phase":"running","bytesDone":0,"bytesTotal":9,"badBlocks":0,"log":"a\n"}
{"event":"status","job":"J","phase":"running","bytesDone":4,"bytesTotal":9,"badBlocks":0,"log":"b\n"}
{"event":"ended","job":"J","phase":"finished","bytesDone":9,"bytesTotal":9,"badBlocks":0,"sha256":"ff","log":"c\n"}
)");
  EXPECT_THAT(program.err.written, IsEmpty());

  script({status(Phase::running), failed("No.", "")});
  EXPECT_EQ(program.run(words), ExitStatus::failed);
  EXPECT_THAT(program.out.written,
              HasSubstr(R"("phase":"failed","bytesDone":0,"bytesTotal":0,"badBlocks":0,"error":"No.")"));
  EXPECT_EQ(program.err.written,
            R"({"job":"J","error":{"domain":"com.molvane.molvanectl","code":1,"description":"No."}})"
            "\n");
}

TEST_F(DeviceFollowing, AToolIsHeardAsItSpeaksAndCommandsNothing) {
  const std::string first = "$ createinstallmedia\n";
  const std::vector<DeviceJobStatus> statuses = {
      status(Phase::running, 0, 0, first), status(Phase::running, 0, 0, first + "Erasing: 10%..."),
      status(Phase::running, 0, 0, first + "Erasing: 10%... 20%...\n\x1b[2Jx\rnew"),
      status(Phase::running, 0, 0, first),
      status(Phase::finished, 0, 0, first + "Erasing: 10%... 20%...\n\x1b[2Jx\rnew")};
  script(statuses);
  EXPECT_EQ(program.run(media), ExitStatus::done);
  EXPECT_EQ(program.out.written,
            first + "Erasing: 10%... 20%...\n\x1b[2Jx\rnew\nThe install media are ready: /Volumes/USB.\n");

  onTerminal();
  script(statuses);
  EXPECT_EQ(program.run(media), ExitStatus::done);
  EXPECT_EQ(program.out.written, first + "Erasing: 10%... 20%...\n\\x1b[2Jx\\x0dnew\n" +
                                     "The install media are ready: /Volumes/USB.\n");
  EXPECT_THAT(program.err.written, HasSubstr("\rrunning  0:00  Erasing: 10%...\x1b[K"));
  EXPECT_THAT(program.err.written, HasSubstr("\rrunning  0:00  new\x1b[K"));
  EXPECT_THAT(program.err.written, EndsWith("\r\x1b[K"));
}

TEST_F(DeviceFollowing, AFailureIsToldOnceWithWhatItMayLeave) {
  const std::string busy = "Cannot open device for writing: Device or resource busy. Unmount it first.";
  const std::string verifying = "Writing x\nVerifying…\n";
  const std::string part = "molvanectl: disk4 may hold only a part of the image.\n";
  const std::string whole = "molvanectl: The whole image was written to disk4, but ";
  const std::string watched = "molvanectl: The whole image was written, but ";
  const std::string unproved = "that the disk holds the same has not been proved.\n";
  const std::string cancelled = "molvanectl: The job was cancelled.\n";
  const std::string differs = "Verification failed: device content differs from the image.";
  const std::string unread = "Verify read failed: Input/output error";
  const Words watch = {"device", "watch", "J"};
  struct Case {
    Words words;
    DeviceJobStatus end;
    std::string said;  // after the job's name
  };
  const Case cases[] = {
      {write, status(Phase::cancelled), cancelled + part},
      {image, failed("No space left", "Reading x\n"),
       "molvanectl: No space left\nmolvanectl: A partial image may be left at /tmp/x.img.\n"},
      // The helper calls it finished when there is nothing more to read.
      {write, status(Phase::finished, 1'500'000, 24'000'000, "Writing x\nDone.\n"),
       "molvanectl: Only 1.50 MB of 24.0 MB could be copied; there was no more to read.\n" + part},
      // Once it verifies, all of the image is on the disk.
      {write, failed(differs, verifying),
       "molvanectl: " + differs + "\n" + whole + "the disk gives back something else. Do not use it.\n"},
      {write, failed(unread, verifying), "molvanectl: " + unread + "\n" + whole + unproved},
      {write, status(Phase::cancelled, 5, 9, verifying), cancelled + whole + unproved},
      {watch, failed(differs, verifying), watched + "the disk gives back something else. Do not use it.\n"},
      {watch, failed(unread, verifying), watched + unproved},
      {watch, status(Phase::cancelled, 5, 9, verifying), watched + unproved},
      // Nothing is left where nothing was begun, nor by an image that was cancelled.
      {write, failed(busy, "Writing x\n"), "molvanectl: job J\nmolvanectl: " + busy + "\n"},
      {watch, failed(busy, "Writing x\n"), "molvanectl: " + busy + "\n"},
      {image, failed("Cannot create /tmp/x.img: File exists", "Reading x\n"),
       "molvanectl: job J\nmolvanectl: Cannot create /tmp/x.img: File exists\n"},
      {image, status(Phase::cancelled, 5, 9, "Reading x\n"), "molvanectl: job J\n" + cancelled},
  };
  for (const Case& each : cases) {
    script({each.end});
    EXPECT_EQ(program.run(each.words), ExitStatus::failed) << each.said;
    EXPECT_THAT(program.out.written, IsEmpty());
    EXPECT_THAT(program.err.written, EndsWith(each.said));
  }
  script({status(Phase::verifying, 5, 9, verifying)});
  program.helper.callsUntilLost = 3;
  EXPECT_EQ(program.run(write), ExitStatus::noConnection);
  EXPECT_THAT(program.err.written, EndsWith(whole.substr(12) + unproved));

  program.helper.callsUntilLost = -1;
  script({status(Phase::running),
          failed("tmutil exited 1: no\nway", "$ tmutil setdestination /Volumes/B\nno\nway\n")});
  program.expect({{backup, ExitStatus::failed, "$ tmutil setdestination /Volumes/B\nno\nway\n",
                   "molvanectl: job J\nmolvanectl: running: 0:00\nmolvanectl: tmutil exited 1: no\nway\n"
                   "molvanectl: Check the system's settings to see whether the backup "
                   "destination has changed.\n"}});
}

TEST_F(DeviceFollowing, AnInterruptionCancelsOnceAndWaitsForTheOutcome) {
  onTerminal();
  program.console.interruptedWaits = {2};
  script({status(Phase::running, 1, 9), status(Phase::running, 2, 9), status(Phase::running, 3, 9),
          status(Phase::cancelled, 3, 9)});
  EXPECT_EQ(program.run(write), ExitStatus::failed);
  EXPECT_EQ(cancellations(), 1);
  EXPECT_THAT(program.err.written,
              HasSubstr("\r\x1b[Kmolvanectl: The helper was asked to cancel the job. Waiting for its end;"));
  EXPECT_THAT(program.err.written, HasSubstr("\r\x1b[Kmolvanectl: The job was cancelled.\n"));

  // What cannot be stopped ends normally, and that is said.
  script({status(Phase::running), status(Phase::running), status(Phase::finished)});
  EXPECT_EQ(program.run(backup), ExitStatus::done);
  EXPECT_EQ(program.out.written, "The backup destination is /Volumes/B.\n");
  EXPECT_THAT(program.err.written,
              HasSubstr("The job was to be cancelled, but it came to its normal end.\n"));

  program.helper.cancels = false;
  script({status(Phase::running), status(Phase::running), status(Phase::finished)});
  EXPECT_EQ(program.run({"device", "watch", "J", "--json"}), ExitStatus::done);
  EXPECT_THAT(program.out.written,
              HasSubstr("{\"event\":\"cancelling\",\"job\":\"J\",\"accepted\":false}\n"));
}

TEST_F(DeviceFollowing, WatchLearnsFromTheLogWhatTheJobDoes) {
  script({status(Phase::queued, 0, 9), status(Phase::running, 1, 9, "Reading /dev/rdisk4 → /x\n"),
          status(Phase::finished, 9, 9, "Reading /dev/rdisk4 → /x\nDone.\n")});
  EXPECT_EQ(program.run({"device", "watch", "J"}), ExitStatus::done);
  EXPECT_THAT(program.err.written, HasSubstr("molvanectl: reading: 11%"));
  EXPECT_EQ(program.out.written, "The disk has been read.\n");

  script({status(Phase::running, 0, 0, "$ tmutil\nhm\n"), status(Phase::finished, 0, 0, "$ tmutil\nhm\n")});
  EXPECT_EQ(program.run({"device", "watch", "J"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "$ tmutil\nhm\nThe job has finished.\n");

  EXPECT_EQ(program.run({"device", "watch", "other"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written, "molvanectl: Unknown job: other (com.molvane.helper, 8)\n");
}

TEST_F(DeviceFollowing, WhatCannotBeKnownIsNotClaimed) {
  onTerminal();
  script({status(Phase::running, 1, 9)});
  program.helper.callsUntilLost = 3;
  EXPECT_EQ(program.run(write), ExitStatus::noConnection);
  EXPECT_THAT(
      program.err.written,
      EndsWith(
          "\r\x1b[Kmolvanectl: The connection to the helper was lost. What has become of the job J is not "
          "known; it may have been broken off. disk4 may hold only a part of the image.\n"));
  EXPECT_THAT(program.out.written, IsEmpty());

  // Lost while it is asked to cancel, or before the job has a name.
  script({status(Phase::running, 1, 9)});
  program.helper.callsUntilLost = 2;
  program.console.interruptedWaits = {1};
  EXPECT_EQ(program.run(write), ExitStatus::noConnection);
  EXPECT_THAT(program.err.written, HasSubstr("What has become of the job J is not known"));
  script({});
  program.helper.callsUntilLost = 0;
  EXPECT_EQ(program.run(write), ExitStatus::noConnection);
  EXPECT_THAT(program.err.written, HasSubstr("Whether it did what was asked is not known."));

  program.helper.callsUntilLost = -1;
  program.console.interruptedWaits = {};
  program.helper.jobs["J"] = {encodedJson(status(Phase::running, 1, 9)), R"({"phase":"melting"})"};
  EXPECT_EQ(program.run(write), ExitStatus::failed);
  EXPECT_THAT(program.err.written,
              HasSubstr("\r\x1b[Kmolvanectl: What the helper answered about the job J cannot be read"));
  EXPECT_THAT(program.err.written, HasSubstr("What has become of the job is not known."));

  program.outIsTerminal = program.errIsTerminal = false;
  program.out.failure = EPIPE;
  script({status(Phase::running, 0, 0, "$ x\n")});
  EXPECT_EQ(program.run(media), ExitStatus::failed);
  EXPECT_THAT(program.err.written, HasSubstr("The job J is no longer followed."));
}

}  // namespace
}  // namespace molvane::ctl
