#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "HelperProtocol/testing/ServedHelper.hpp"
#include "Platform/ChildProcess.hpp"

// The protocol as others speak it: sd-bus, GLib and libdbus through their command-line tools.
namespace molvane::testing {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Arguments = std::vector<std::string>;
using Call = RecordingHelper::Call;

struct Result {
  int status = -1;
  std::string output;
};

Result run(const std::string& tool, const Arguments& arguments) {
  Result result;
  ChildProcess process({tool, arguments, ChildProcess::StandardInput::null});
  const auto deadline = ChildProcess::Clock::now() + std::chrono::seconds(60);
  const auto collect = [&result](std::string_view piece) { result.output += piece; };
  process.pump(deadline, collect);
  process.drain(deadline, collect);
  result.status = process.terminationStatus().value_or(-1);
  return result;
}

Arguments joined(Arguments first, const Arguments& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

class RealClientsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* tool : {kBusctl, kGdbus, kDbusSend}) {
      if (::access(tool, X_OK) != 0) GTEST_SKIP() << tool << " is not installed";
    }
  }

  Result busctl(const Arguments& arguments) {
    return run(kBusctl, joined({"--address=unix:path=" + served_.socketPath(), "--no-pager"}, arguments));
  }
  Result busctlCall(const Arguments& arguments) {
    return busctl(
        joined({"call", "com.molvane.helper", "/com/molvane/helper", "com.molvane.helper"}, arguments));
  }
  Result gdbusCall(const std::string& member, const Arguments& arguments) {
    return run(kGdbus, joined({"call", "--address", "unix:path=" + served_.socketPath(), "--dest",
                               "com.molvane.helper", "--object-path", "/com/molvane/helper", "--method",
                               "com.molvane.helper." + member},
                              arguments));
  }
  Result dbusSend(const Arguments& arguments) {
    return run(kDbusSend, joined({"--peer=unix:path=" + served_.socketPath(), "--print-reply=literal",
                                  "/com/molvane/helper"},
                                 arguments));
  }

  static constexpr const char* kBusctl = "/usr/bin/busctl";
  static constexpr const char* kGdbus = "/usr/bin/gdbus";
  static constexpr const char* kDbusSend = "/usr/bin/dbus-send";

  ServedHelper served_;
};

TEST_F(RealClientsTest, SdBusSeesEveryMethodWithItsTypes) {
  const Result result =
      busctl({"introspect", "--list", "com.molvane.helper", "/com/molvane/helper", "com.molvane.helper"});
  std::string table;
  for (const char c : result.output) {
    if (c != ' ' || !table.ends_with(' ')) table += c;
  }
  for (const char* row :
       {".Ping method - s", ".RemoveAllowedItemAtPath method s b", ".SizeOfAllowedDirectoryAtPath method s x",
        ".RunMaintenanceTask method s bs", ".StartDeviceJob method ay s", ".DeviceJobStatus method s ay",
        ".CancelDeviceJob method s b", ".RemoveApplicationAtPath method s b",
        ".InstallPackageAtPath method s bs", ".InstallUnverifiedPackageAtPath method s bs",
        ".InstallApplicationAtPath method s bs", ".ManageLocalAccount method ay aayas",
        ".ApplyCompanyAdmin method ay ay", ".CompanyAdminPassword method - asas"}) {
    EXPECT_THAT(table, HasSubstr(row));
  }
  EXPECT_EQ(result.status, 0);
}

TEST_F(RealClientsTest, SdBusCalls) {
  Answers answers;
  answers.ok = false;
  answers.message = "all \"done\"";
  answers.document = Data{'{', '}'};
  answers.text = "itadmin";
  answers.secondText = "s3cret";
  served_.helper().setAnswers(answers);

  EXPECT_EQ(busctlCall({"Ping"}).output, "s \"all \\\"done\\\"\"\n");
  EXPECT_EQ(busctlCall({"InstallPackageAtPath", "s", "/a b"}).output, "bs false \"all \\\"done\\\"\"\n");
  EXPECT_EQ(busctlCall({"ManageLocalAccount", "ay", "2", "123", "125"}).output,
            "aayas 1 2 123 125 1 \"itadmin\"\n");
  EXPECT_EQ(busctlCall({"CompanyAdminPassword"}).output, "asas 1 \"itadmin\" 1 \"s3cret\"\n");
  served_.helper().setAnswers({});
  EXPECT_EQ(busctlCall({"CompanyAdminPassword"}).output, "asas 0 0\n");
  EXPECT_THAT(served_.helper().takeCalls(),
              ElementsAre(Call{"ping", ""}, Call{"installPackage", "/a b"}, Call{"manageLocalAccount", "{}"},
                          Call{"companyAdminPassword", ""}, Call{"companyAdminPassword", ""}));
}

TEST_F(RealClientsTest, SdBusSeesErrorsAndTheTree) {
  served_.helper().setAnswers(Answers::failure({"com.molvane.helper", 8, "Unknown job: x"}));
  const Result refused = busctlCall({"DeviceJobStatus", "s", "x"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.output, HasSubstr("Call failed: Unknown job: x"));
  EXPECT_THAT(busctlCall({"Ping", "s", "x"}).output, HasSubstr("Expected arguments of the types ''"));
  EXPECT_THAT(busctlCall({"Frobnicate"}).output, HasSubstr("No method Frobnicate"));
  EXPECT_THAT(busctl({"call", "a.b", "/nowhere", "a.b", "C"}).output, HasSubstr("No object at /nowhere"));
  EXPECT_THAT(busctl({"tree", "com.molvane.helper"}).output,
              AllOf(HasSubstr("/com/molvane/helper"), HasSubstr("/com/molvane\n")));
  EXPECT_EQ(busctl({"get-property", "a.b", "/com/molvane/helper", "com.molvane.helper", "Colour"}).status, 1);
}

TEST_F(RealClientsTest, GLibIntrospectsAndCalls) {
  const Result xml = run(kGdbus, {"introspect", "--address", "unix:path=" + served_.socketPath(), "--dest",
                                  "com.molvane.helper", "--object-path", "/", "--recurse"});
  EXPECT_EQ(xml.status, 0) << xml.output;
  EXPECT_THAT(xml.output,
              AllOf(HasSubstr("node /com/molvane/helper {"), HasSubstr("CompanyAdminPassword(out as name"),
                    HasSubstr("ManageLocalAccount(in  ay operation")));

  Answers answers;
  answers.size = -5'000'000'000;
  answers.message = "pong";
  served_.helper().setAnswers(answers);
  EXPECT_EQ(gdbusCall("Ping", {}).output, "('pong',)\n");
  EXPECT_EQ(gdbusCall("SizeOfAllowedDirectoryAtPath", {"'/Ümläut'"}).output, "(int64 -5000000000,)\n");
  EXPECT_EQ(gdbusCall("ManageLocalAccount", {"[byte 0x7b, 0x7d]"}).output, "(@aay [], @as [])\n");
  served_.helper().setAnswers(Answers::failure({"com.molvane.helper.policy", 12, "No."}));
  EXPECT_THAT(gdbusCall("InstallPackageAtPath", {"'/x'"}).output,
              HasSubstr("GDBus.Error:com.molvane.helper.policy.PackageInstall: No."));
}

TEST_F(RealClientsTest, LibdbusIntrospectsAndCalls) {
  EXPECT_THAT(dbusSend({"org.freedesktop.DBus.Introspectable.Introspect"}).output,
              HasSubstr("<method name=\"StartDeviceJob\">"));
  EXPECT_EQ(dbusSend({"org.freedesktop.DBus.Peer.Ping"}).status, 0);
  Answers answers;
  answers.text = "5F3A";
  served_.helper().setAnswers(answers);
  EXPECT_THAT(dbusSend({"com.molvane.helper.StartDeviceJob", "array:byte:123,125"}).output,
              HasSubstr("5F3A"));
  EXPECT_THAT(dbusSend({"com.molvane.helper.RemoveAllowedItemAtPath", "string:/tmp/x"}).output,
              HasSubstr("boolean true"));
  served_.helper().setAnswers(Answers::failure({std::string(kPOSIXErrorDomain), EACCES, "Nein."}));
  EXPECT_THAT(dbusSend({"com.molvane.helper.RemoveAllowedItemAtPath", "string:/tmp/x"}).output,
              HasSubstr("Error System.Error.EACCES: Nein."));
  EXPECT_THAT(served_.helper().takeCalls(),
              ElementsAre(Call{"startDeviceJob", "{}"}, Call{"removeAllowedItem", "/tmp/x"},
                          Call{"removeAllowedItem", "/tmp/x"}));
}

// Taken for a bus, a connection says hello first.
TEST_F(RealClientsTest, LibdbusTakesTheConnectionForABus) {
  const Result result =
      run(kDbusSend,
          {"--bus=unix:path=" + served_.socketPath(), "--print-reply=literal", "--dest=com.molvane.helper",
           "/com/molvane/helper", "org.freedesktop.DBus.Properties.GetAll", "string:com.molvane.helper"});
  EXPECT_EQ(result.status, 0) << result.output;
}

}  // namespace
}  // namespace molvane::testing
