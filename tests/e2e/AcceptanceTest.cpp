#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "Harness.hpp"

namespace molvane::e2e {
namespace {

using testing::HasSubstr;

constexpr int kNoConnection = 3;
constexpr gid_t kClientGroup = 399;

void sign(const std::string& executable, const std::string& identifier = "com.molvane.app",
          const std::string& leaf = "developer-id") {
  const Outcome signing =
      run({std::string(std::getenv("MACROOT")) + "/signing/sign", executable, identifier, leaf});
  ASSERT_EQ(signing.status, 0) << signing.err;
}

// A copy of the client with the group that may connect, so that only the signature is in question.
std::string copyOfClient(const std::string& name) {
  const std::filesystem::path copy = "/opt/clients/" + name;
  std::filesystem::create_directories(copy.parent_path());
  std::filesystem::remove(copy);
  std::filesystem::remove(copy.string() + ".codesig");
  std::filesystem::copy_file(kClient, copy);
  EXPECT_EQ(chown(copy.c_str(), 0, kClientGroup), 0);
  EXPECT_EQ(chmod(copy.c_str(), 02755), 0);
  return copy;
}

// The client is cut off, the helper counts it down, and others are served by the same helper as before.
void expectRefused(const std::string& client) {
  ASSERT_EQ(molvanectl({"ping"}, kBob).out, "pong\n");
  const auto helper = helperProcess();
  LogFollower log(kHelperLog);
  const Outcome refused = run({client, "ping"}, kAnn);
  EXPECT_EQ(refused.status, kNoConnection) << testing::PrintToString(refused);
  EXPECT_EQ(refused.out, "");
  EXPECT_NE(refused.err, "");
  log.waitFor("MolvaneHelper: connection invalidated");
  EXPECT_EQ(molvanectl({"ping"}, kBob).out, "pong\n");
  EXPECT_EQ(helperProcess(), helper);
}

TEST(Acceptance, SignedClientIsServedWhoeverRunsIt) {
  for (const Person who : {kRoot, kAnn, kBob}) {
    const Outcome outcome = molvanectl({"ping"}, who);
    EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
    EXPECT_EQ(outcome.out, "pong\n");
    EXPECT_EQ(outcome.err, "");
  }
}

TEST(Acceptance, TheKernelStopsWhoHasNotTheGroup) {
  const std::string client = copyOfClient("no-group");
  ASSERT_NO_FATAL_FAILURE(sign(client));
  ASSERT_EQ(chmod(client.c_str(), 0755), 0);
  const Outcome outcome = run({client, "ping"}, kAnn);
  EXPECT_EQ(outcome.status, kNoConnection) << testing::PrintToString(outcome);
  EXPECT_THAT(outcome.err, HasSubstr("Permission denied"));
}

TEST(Acceptance, UnsignedClientIsCutOff) { expectRefused(copyOfClient("unsigned")); }

TEST(Acceptance, ProperlySignedCopyIsServed) {
  const std::string client = copyOfClient("signed");
  ASSERT_NO_FATAL_FAILURE(sign(client));
  EXPECT_EQ(run({client, "ping"}, kAnn).out, "pong\n");
}

// Another team; the vendor's own; certificates that lack what a Developer ID has; one that has run out.
TEST(Acceptance, OtherCertificatesAreNotEnough) {
  for (const std::string leaf : {"other-team", "vendor", "unmarked", "unmarked-ca", "tls", "expired"}) {
    SCOPED_TRACE(leaf);
    const std::string client = copyOfClient(leaf);
    ASSERT_NO_FATAL_FAILURE(sign(client, "com.molvane.app", leaf));
    expectRefused(client);
  }
}

TEST(Acceptance, OtherProgramOfTheTeamIsCutOff) {
  for (const std::string identifier : {"com.molvane.other", "com.molvane.app2", "com.molvane.App"}) {
    const std::string client = copyOfClient("other-program");
    ASSERT_NO_FATAL_FAILURE(sign(client, identifier));
    expectRefused(client);
  }
}

TEST(Acceptance, SignatureOfAnotherFileIsNone) {
  const std::string client = copyOfClient("borrowed-signature");
  std::filesystem::copy_file("/opt/signed/busctl.codesig", client + ".codesig");
  expectRefused(client);
}

TEST(Acceptance, ExecutableChangedAfterSigningIsCutOff) {
  const std::string client = copyOfClient("changed");
  ASSERT_NO_FATAL_FAILURE(sign(client));
  ASSERT_EQ(run({client, "ping"}, kAnn).out, "pong\n");

  // Changed in place after the helper has seen it good, with its old modification time put back.
  const auto modified = std::filesystem::last_write_time(client);
  std::string content = readFile(client);
  content.push_back('\0');
  writeFile(client, content);
  std::filesystem::last_write_time(client, modified);
  ASSERT_EQ(chmod(client.c_str(), 02755), 0);
  expectRefused(client);
}

class WithTeam : public testing::Test {
 protected:
  ~WithTeam() override { writeFile(kInfoPlist, original_); }

  /// Installs the helper with another value for its team. It is read anew for every peer, but a fresh helper
  /// leaves nothing to doubt.
  void setTeam(const std::string& value) const {
    const std::string element = "<string>MOLVANEDEV</string>";
    std::string changed = original_;
    writeFile(kInfoPlist, changed.replace(original_.find(element), element.size(), value));
    endHelper();
  }

 private:
  const std::string original_ = readFile(kInfoPlist);
};

TEST_F(WithTeam, RefusesEverybodyWithoutOne) {
  for (const char* none :
       {"<string>  \n </string>", "<integer>7</integer>", "<string>$(DEVELOPMENT_TEAM)</string>"}) {
    setTeam(none);
    LogFollower log(kHelperLog);
    const Outcome outcome = molvanectl({"ping"});
    EXPECT_EQ(outcome.status, kNoConnection) << none << testing::PrintToString(outcome);
    EXPECT_EQ(log.waitFor("team ID"), "MolvaneHelper: no team ID in Release build; refusing all peers");
    EXPECT_EQ(log.waitFor("rejected"), "MolvaneHelper: rejected XPC peer");
  }
}

TEST_F(WithTeam, CutsOffTheClientsOfOthers) {
  setTeam("<string>MOLVANEDE</string>");
  LogFollower log(kHelperLog);
  EXPECT_EQ(molvanectl({"ping"}).status, kNoConnection);
  log.waitFor("MolvaneHelper: connection invalidated");
  setTeam("<string>  MOLVANEDEV\n</string>");
  EXPECT_EQ(molvanectl({"ping"}).out, "pong\n") << "it is trimmed";
}

}  // namespace
}  // namespace molvane::e2e
