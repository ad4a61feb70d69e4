#include "HelperProtocol/dbus/Proxy.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <stdexcept>
#include <system_error>

#include "Base/Utf8.hpp"
#include "HelperProtocol/dbus/Limits.hpp"
#include "HelperProtocol/testing/ProtocolConformance.hpp"
#include "HelperProtocol/testing/ServedHelper.hpp"

namespace molvane::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class InProcess final : public Carrier {
 public:
  RecordingHelper& helper() override { return helper_; }
  MolvaneHelperXPCProtocol& nearEnd() override { return helper_; }
  std::string carried(const std::string& text) override { return text; }

 private:
  RecordingHelper helper_;
};

class OverSocket final : public Carrier {
 public:
  RecordingHelper& helper() override { return served_.helper(); }
  MolvaneHelperXPCProtocol& nearEnd() override { return proxy_; }
  std::string carried(const std::string& text) override {
    std::string result;
    for (const char c : repairedUtf8(text)) c == '\0' ? result += "\uFFFD" : result += c;
    return result;
  }

 private:
  ServedHelper served_;
  dbus::Proxy proxy_{served_.socketPath()};
};

INSTANTIATE_TEST_SUITE_P(
    Every, ProtocolConformance,
    ::testing::Values(Transport{"InProcess", [] { return std::make_unique<InProcess>(); }},
                      Transport{"OverSocket", [] { return std::make_unique<OverSocket>(); }}),
    [](const auto& info) { return info.param.name; });

class ProxyTest : public ::testing::Test {
 protected:
  OptionalError removalError() {
    OptionalError result;
    proxy_.removeAllowedItem("/x", [&](bool /*ok*/, const OptionalError& error) { result = error; });
    return result;
  }

  ServedHelper served_;
  dbus::Proxy proxy_{served_.socketPath()};
};

TEST_F(ProxyTest, WhatTheObjectThrowsComesBackAsAnError) {
  served_.helper().setBeforeReply(
      []() -> bool { throw std::system_error(EROFS, std::generic_category(), "x"); });
  EXPECT_EQ(removalError(), (NSError{std::string(kPOSIXErrorDomain), EROFS, posixErrorDescription(EROFS)}));
  served_.helper().setBeforeReply([]() -> bool { throw std::runtime_error("odd"); });
  EXPECT_EQ(removalError(), (NSError{std::string(kPOSIXErrorDomain), EIO, "odd"}));
  served_.helper().setBeforeReply(
      []() -> bool { throw 7; });  // NOLINT: what is no exception is caught as well
  EXPECT_EQ(removalError(), (NSError{std::string(kPOSIXErrorDomain), EIO, posixErrorDescription(EIO)}));
  served_.helper().setBeforeReply([]() -> bool { throw std::bad_alloc(); });
  EXPECT_EQ(removalError()->domain, "org.freedesktop.DBus.Error.NoMemory");

  served_.helper().setBeforeReply({});
  EXPECT_EQ(removalError(), std::nullopt);
}

TEST_F(ProxyTest, AnObjectThatKeepsSilentOrAnswersNothingIsAnError) {
  served_.helper().setBeforeReply([] { return false; });
  EXPECT_EQ(removalError()->domain, "org.freedesktop.DBus.Error.NoReply");
  served_.helper().setBeforeReply({});
  bool failed = false;
  proxy_.startDeviceJob({}, [&](const auto& jobID, const OptionalError& error) { failed = !jobID && error; });
  EXPECT_TRUE(failed);
}

TEST_F(ProxyTest, WithoutAPlaceForAnErrorItIsThrown) {
  served_.helper().setBeforeReply(
      []() -> bool { throw std::system_error(EIO, std::generic_category(), "x"); });
  try {
    proxy_.ping([](const std::string&) { FAIL(); });
    FAIL();
  } catch (const RemoteError& error) {
    EXPECT_EQ(error.error().code, EIO);
  }
  EXPECT_THROW(proxy_.cancelDeviceJob("x", [](bool) { FAIL(); }), RemoteError);
  served_.helper().setBeforeReply({});
  EXPECT_EQ(removalError(), std::nullopt);
}

TEST_F(ProxyTest, WhatDoesNotFitIsNotSentAndNotAnswered) {
  OptionalError error;
  proxy_.applyCompanyAdmin(Data(dbus::kMaxRequestSize),
                           [&](const auto&, const OptionalError& is) { error = is; });
  EXPECT_EQ(error, (NSError{std::string(kPOSIXErrorDomain), EMSGSIZE, posixErrorDescription(EMSGSIZE)}));
  EXPECT_THAT(served_.helper().takeCalls(), IsEmpty());

  Answers answers;
  answers.document = Data(dbus::kMaxArraySize + 1);
  served_.helper().setAnswers(answers);
  proxy_.deviceJobStatus("x", [&](const auto& document, const OptionalError& is) {
    EXPECT_FALSE(document);
    error = is;
  });
  EXPECT_EQ(error->domain, "org.freedesktop.DBus.Error.LimitsExceeded");
  EXPECT_EQ(removalError(), std::nullopt);
}

TEST_F(ProxyTest, ALostConnectionStaysLost) {
  EXPECT_EQ(removalError(), std::nullopt);
  served_.stop();
  EXPECT_THROW(removalError(), ConnectionError);
  EXPECT_THROW(removalError(), ConnectionError);
  EXPECT_THROW(dbus::Proxy(served_.socketPath()), ConnectionError);
}

TEST(ProxyConnectingTest, APeerThatIsRefusedLearnsItAtOnce) {
  ::testing::internal::CaptureStderr();
  {
    ServedHelper served({.codeProblem = "the signature\nis stale"});
    EXPECT_THROW(dbus::Proxy(served.socketPath()), ConnectionError);
    EXPECT_TRUE(served.waitForInvalidations(1));
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "MolvaneHelper: refused peer: the signature\\x0ais stale\n");

  ServedHelper unwilling({.accepts = false});
  EXPECT_THROW(dbus::Proxy(unwilling.socketPath()), ConnectionError);
  EXPECT_EQ(unwilling.invalidated(), 0);
}

TEST(ProxyConnectingTest, WithoutARequirementNobodyIsLetIn) {
  ::testing::internal::CaptureStderr();
  ServedHelper served({.setsRequirement = false});
  EXPECT_THROW(dbus::Proxy(served.socketPath()), ConnectionError);
  EXPECT_TRUE(served.waitForInvalidations(1));
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("no requirement was set"));
}

}  // namespace
}  // namespace molvane::testing
