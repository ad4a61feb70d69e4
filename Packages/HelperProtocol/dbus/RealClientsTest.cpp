#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "HelperProtocol/testing/ServedHelper.hpp"
#include "Platform/ChildProcess.hpp"

// The protocol as others speak it: sd-bus, GLib and libdbus through their command-line tools, and the
// libraries of other languages.
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
  EXPECT_THAT(busctl({"call", "com.molvane.helper", "/nowhere", "a.b", "C"}).output,
              HasSubstr("No object at /nowhere"));
  EXPECT_THAT(busctl({"tree", "com.molvane.helper"}).output,
              AllOf(HasSubstr("/com/molvane/helper"), HasSubstr("/com/molvane\n")));
  EXPECT_EQ(
      busctl({"get-property", "com.molvane.helper", "/com/molvane/helper", "com.molvane.helper", "Colour"})
          .status,
      1);
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

struct Library {
  const char* name;
  const char* interpreter;
  const char* loads;   ///< a program that ends well where the library is installed
  const char* script;  ///< prints the answer to Ping and the error that a removal is refused with

  friend void PrintTo(const Library& library, std::ostream* stream) { *stream << library.name; }
};

// Programs for a bus, as their authors would write them.
constexpr Library kLibraries[] = {
    {"dbus-python", "/usr/bin/python3", "import dbus", R"(
import dbus, dbus.bus, sys
bus = dbus.bus.BusConnection(sys.argv[1])
helper = dbus.Interface(bus.get_object("com.molvane.helper", "/com/molvane/helper"), "com.molvane.helper")
print(helper.Ping())
try: helper.RemoveAllowedItemAtPath("/x")
except dbus.DBusException as error: print(error.get_dbus_name(), error.get_dbus_message())
)"},
    {"GLib's proxy", "/usr/bin/python3", "import gi.repository.Gio", R"(
import sys
from gi.repository import Gio, GLib
kinds = Gio.DBusConnectionFlags
bus = Gio.DBusConnection.new_for_address_sync(
    sys.argv[1], kinds.AUTHENTICATION_CLIENT | kinds.MESSAGE_BUS_CONNECTION, None, None)
helper = Gio.DBusProxy.new_sync(
    bus, Gio.DBusProxyFlags.NONE, None, "com.molvane.helper", "/com/molvane/helper", "com.molvane.helper", None)
if not helper.get_name_owner(): print("nobody owns the name")
print(helper.Ping())
try: helper.RemoveAllowedItemAtPath('(s)', "/x")
except GLib.Error as error: print(error.message)
)"},
    {"dbus-next", "/usr/bin/python3", "import dbus_next", R"(
import asyncio, sys
from dbus_next import DBusError
from dbus_next.aio import MessageBus
async def talk():
    bus = await MessageBus(bus_address=sys.argv[1]).connect()
    place = "com.molvane.helper", "/com/molvane/helper"
    helper = bus.get_proxy_object(*place, await bus.introspect(*place)).get_interface("com.molvane.helper")
    print(await helper.call_ping())
    try: await helper.call_remove_allowed_item_at_path("/x")
    except DBusError as error: print(error.type, error.text)
asyncio.run(talk())
)"},
    {"Net::DBus", "/usr/bin/perl", "use Net::DBus", R"(
use Net::DBus;
my $bus = Net::DBus->new($ARGV[0]);
my $helper = $bus->get_service("com.molvane.helper")->get_object("/com/molvane/helper", "com.molvane.helper");
print $helper->Ping, "\n";
eval { $helper->RemoveAllowedItemAtPath("/x") };
print $@;
)"},
    {"ruby-dbus", "/usr/bin/ruby", "require 'dbus'", R"(
require "dbus"
helper = DBus::RemoteBus.new(ARGV[0])["com.molvane.helper"]["/com/molvane/helper"]["com.molvane.helper"]
puts helper.Ping
begin helper.RemoveAllowedItemAtPath("/x")
rescue DBus::Error => error then puts "#{error.name} #{error.message}"
end
)"},
};

class BusClientsTest : public RealClientsTest, public ::testing::WithParamInterface<Library> {
 protected:
  void SetUp() override {
    const Library& library = GetParam();
    if (::access(library.interpreter, X_OK) != 0 || execute(library.loads).status != 0) {
      GTEST_SKIP() << library.name << " is not installed";
    }
  }

  Result execute(const char* program) {
    const Library& library = GetParam();
    const char* option = std::string_view(library.interpreter).ends_with("python3") ? "-c" : "-e";
    return run(library.interpreter, {option, program, "unix:path=" + served_.socketPath()});
  }
};

// They say hello, ask who owns the name and want to be told when it changes hands, and only then call.
TEST_P(BusClientsTest, TakesTheConnectionForABus) {
  Answers answers = Answers::failure({"com.molvane.helper", 1, "Path not allowed: /x"});
  answers.message = "pong";
  served_.helper().setAnswers(answers);
  const Result result = execute(GetParam().script);
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, ::testing::StartsWith("pong\n"));
  EXPECT_THAT(result.output,
              AllOf(HasSubstr("com.molvane.helper.Denied"), HasSubstr("Path not allowed: /x")));
  EXPECT_THAT(served_.helper().takeCalls(), ElementsAre(Call{"ping", ""}, Call{"removeAllowedItem", "/x"}));
}

INSTANTIATE_TEST_SUITE_P(Libraries, BusClientsTest, ::testing::ValuesIn(kLibraries));

}  // namespace
}  // namespace molvane::testing
