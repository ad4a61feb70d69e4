#include "HelperProtocol/testing/ProtocolConformance.hpp"

#include <cerrno>
#include <limits>
#include <optional>
#include <vector>

namespace molvane::testing {

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ProtocolConformance);

namespace {

using namespace std::string_literals;
using Call = RecordingHelper::Call;
using Helper = MolvaneHelperXPCProtocol;

/// Everything that any reply may carry; a method sets what is in its own.
struct Outcome {
  std::optional<bool> ok = {};
  std::optional<std::int64_t> size = {};
  std::optional<std::string> message = {};
  std::optional<std::optional<Data>> document = {};
  std::optional<std::optional<std::string>> text = {};
  std::optional<std::optional<std::string>> secondText = {};
  OptionalError error = {};
  int replies = 0;

  bool operator==(const Outcome&) const = default;
};

enum Part : unsigned {
  kOk = 1,
  kSize = 2,
  kMessage = 4,
  kDocument = 8,
  kText = 16,
  kSecondText = 32,
  kError = 64
};

/// One of the 14, called with a text (as bytes where it takes a document).
struct Method {
  std::string name;
  bool takesArgument;
  unsigned parts;
  std::function<Outcome(Helper&, const std::string&)> call;
};

Data dataOf(const std::string& text) { return {text.begin(), text.end()}; }

template <typename Invoke>
Outcome okOf(Invoke&& invoke) {
  Outcome outcome;
  invoke([&](bool ok, const OptionalError& error) {
    outcome = {.ok = ok, .error = error, .replies = outcome.replies + 1};
  });
  return outcome;
}

template <typename Invoke>
Outcome okAndMessageOf(Invoke&& invoke) {
  Outcome outcome;
  invoke([&](bool ok, const std::string& message, const OptionalError& error) {
    outcome = {.ok = ok, .message = message, .error = error, .replies = outcome.replies + 1};
  });
  return outcome;
}

template <typename Invoke>
Outcome documentOf(Invoke&& invoke) {
  Outcome outcome;
  invoke([&](const std::optional<Data>& document, const OptionalError& error) {
    outcome = {.document = document, .error = error, .replies = outcome.replies + 1};
  });
  return outcome;
}

Outcome ping(Helper& helper, const std::string& /*argument*/) {
  Outcome outcome;
  helper.ping(
      [&](const std::string& message) { outcome = {.message = message, .replies = outcome.replies + 1}; });
  return outcome;
}

Outcome size(Helper& helper, const std::string& path) {
  Outcome outcome;
  helper.sizeOfAllowedDirectory(path, [&](std::int64_t size, const OptionalError& error) {
    outcome = {.size = size, .error = error, .replies = outcome.replies + 1};
  });
  return outcome;
}

Outcome startDeviceJob(Helper& helper, const std::string& spec) {
  Outcome outcome;
  helper.startDeviceJob(dataOf(spec),
                        [&](const std::optional<std::string>& jobID, const OptionalError& error) {
                          outcome = {.text = jobID, .error = error, .replies = outcome.replies + 1};
                        });
  return outcome;
}

Outcome cancelDeviceJob(Helper& helper, const std::string& jobID) {
  Outcome outcome;
  helper.cancelDeviceJob(jobID, [&](bool ok) { outcome = {.ok = ok, .replies = outcome.replies + 1}; });
  return outcome;
}

Outcome manageLocalAccount(Helper& helper, const std::string& operation) {
  Outcome outcome;
  helper.manageLocalAccount(
      dataOf(operation), [&](const std::optional<Data>& document, const std::optional<std::string>& text,
                             const OptionalError& error) {
        outcome = {.document = document, .text = text, .error = error, .replies = outcome.replies + 1};
      });
  return outcome;
}

Outcome companyAdminPassword(Helper& helper, const std::string& /*argument*/) {
  Outcome outcome;
  helper.companyAdminPassword([&](const std::optional<std::string>& name,
                                  const std::optional<std::string>& password, const OptionalError& error) {
    outcome = {.text = name, .secondText = password, .error = error, .replies = outcome.replies + 1};
  });
  return outcome;
}

template <typename Member>
auto withOk(Member member) {
  return [member](Helper& helper, const std::string& path) {
    return okOf([&](auto reply) { (helper.*member)(path, reply); });
  };
}

template <typename Member>
auto withOkAndMessage(Member member) {
  return [member](Helper& helper, const std::string& path) {
    return okAndMessageOf([&](auto reply) { (helper.*member)(path, reply); });
  };
}

const std::vector<Method>& methods() {
  static const std::vector<Method> all = {
      {"ping", false, kMessage, ping},
      {"removeAllowedItem", true, kOk | kError, withOk(&Helper::removeAllowedItem)},
      {"sizeOfAllowedDirectory", true, kSize | kError, size},
      {"runMaintenanceTask", true, kOk | kMessage | kError, withOkAndMessage(&Helper::runMaintenanceTask)},
      {"startDeviceJob", true, kText | kError, startDeviceJob},
      {"deviceJobStatus", true, kDocument | kError,
       [](Helper& helper, const std::string& jobID) {
         return documentOf([&](auto reply) { helper.deviceJobStatus(jobID, reply); });
       }},
      {"cancelDeviceJob", true, kOk, cancelDeviceJob},
      {"removeApplication", true, kOk | kError, withOk(&Helper::removeApplication)},
      {"installPackage", true, kOk | kMessage | kError, withOkAndMessage(&Helper::installPackage)},
      {"installUnverifiedPackage", true, kOk | kMessage | kError,
       withOkAndMessage(&Helper::installUnverifiedPackage)},
      {"installApplication", true, kOk | kMessage | kError, withOkAndMessage(&Helper::installApplication)},
      {"manageLocalAccount", true, kDocument | kText | kError, manageLocalAccount},
      {"applyCompanyAdmin", true, kDocument | kError,
       [](Helper& helper, const std::string& configuration) {
         return documentOf([&](auto reply) { helper.applyCompanyAdmin(dataOf(configuration), reply); });
       }},
      {"companyAdminPassword", false, kText | kSecondText | kError, companyAdminPassword},
  };
  return all;
}

/// What a method with these parts is to reply when it was told `answers`.
Outcome expected(unsigned parts, const Answers& answers) {
  Outcome outcome;
  outcome.replies = 1;
  if ((parts & kOk) != 0) outcome.ok = answers.ok;
  if ((parts & kSize) != 0) outcome.size = answers.size;
  if ((parts & kMessage) != 0) outcome.message = answers.message;
  if ((parts & kDocument) != 0) outcome.document = answers.document;
  if ((parts & kText) != 0) outcome.text = answers.text;
  if ((parts & kSecondText) != 0) outcome.secondText = answers.secondText;
  if ((parts & kError) != 0) outcome.error = answers.error;
  return outcome;
}

Answers successes() {
  Answers answers;
  answers.size = std::numeric_limits<std::int64_t>::max();
  answers.message = "fertig – 完了\n";
  answers.document = Data{0, 255, '{', '}'};
  answers.text = "itadmin";
  answers.secondText = "";
  return answers;
}

TEST_P(ProtocolConformance, EveryMethodTakesItsArgumentAndBringsItsValues) {
  const Answers answers = successes();
  carrier_->helper().setAnswers(answers);
  for (const Method& method : methods()) {
    SCOPED_TRACE(method.name);
    EXPECT_EQ(method.call(carrier_->nearEnd(), "/Üser/a b"), expected(method.parts, answers));
    const Call call{method.name, method.takesArgument ? "/Üser/a b" : ""};
    EXPECT_EQ(carrier_->helper().takeCalls(), std::vector{call});
  }
}

TEST_P(ProtocolConformance, EveryMethodBringsItsFailureValueWithAnError) {
  const Answers failure = Answers::failure({"com.molvane.helper", 4, "Path not found: /x"});
  carrier_->helper().setAnswers(failure);
  for (const Method& method : methods()) {
    SCOPED_TRACE(method.name);
    EXPECT_EQ(method.call(carrier_->nearEnd(), ""), expected(method.parts, failure));
  }
}

TEST_P(ProtocolConformance, ValuesMayBeAbsentWithoutAnError) {
  const std::optional<Data> documents[] = {std::nullopt, Data{}};
  const std::optional<std::string> texts[] = {std::nullopt, "", "last-admin"};
  for (const auto& document : documents) {
    for (const auto& text : texts) {
      Answers answers;
      answers.document = document;
      answers.text = text;
      carrier_->helper().setAnswers(answers);
      EXPECT_EQ(manageLocalAccount(carrier_->nearEnd(), "{}"), expected(kDocument | kText | kError, answers));
      EXPECT_EQ(companyAdminPassword(carrier_->nearEnd(), {}),
                expected(kText | kSecondText | kError, answers));
    }
  }
}

TEST_P(ProtocolConformance, EveryErrorKeepsDomainCodeAndWords) {
  std::vector<NSError> errors;
  for (const std::int64_t code : {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, -1}) {
    errors.push_back({"com.molvane.helper", code, "Unknown job: x"});
  }
  for (const std::int64_t code : {9, 10, 11, 12, 13, 14})
    errors.push_back({"com.molvane.helper.policy", code, ""});
  for (std::int64_t code = -1; code < 140; ++code)
    errors.push_back({std::string(kPOSIXErrorDomain), code, "“No.”"});
  errors.push_back({std::string(kPOSIXErrorDomain), std::int64_t{1} << 40, "far"});
  errors.push_back({"NSCocoaErrorDomain", 513, "You don’t have permission."});
  errors.push_back({"", std::numeric_limits<std::int64_t>::min(), ""});
  errors.push_back({"org.freedesktop.DBus.Error.Failed", 0, "x"});
  errors.push_back({"com.molvane.helper.OtherError", 7, std::string(70'000, 'w')});
  errors.push_back({std::string(1'000, 'd') + " ümläut", 1, "x"});
  for (const NSError& error : errors) {
    carrier_->helper().setAnswers(Answers::failure(error));
    EXPECT_EQ(size(carrier_->nearEnd(), "/x").error, error);
  }
}

TEST_P(ProtocolConformance, TextsArriveAsTheWayCarriesThem) {
  const std::string texts[] = {"",
                               "a\0b"s,
                               "\0"s,
                               "\xff",
                               "a\xe2\x82",
                               "\xed\xa0\x80",
                               "e\xcc\x81",
                               "\xef\xbf\xbf end",
                               "\x7f\r\n\x1b",
                               "\xf4\x8f\xbf\xbf"};
  for (const std::string& text : texts) {
    Answers answers = successes();
    answers.message = answers.text.emplace(answers.secondText.emplace(text));
    carrier_->helper().setAnswers(answers);
    answers.message = answers.text.emplace(answers.secondText.emplace(carrier_->carried(text)));
    EXPECT_EQ(okAndMessageOf([&](auto reply) { carrier_->nearEnd().runMaintenanceTask(text, reply); }),
              expected(kOk | kMessage | kError, answers));
    EXPECT_EQ(companyAdminPassword(carrier_->nearEnd(), {}), expected(kText | kSecondText | kError, answers));
    EXPECT_EQ(carrier_->helper().takeCalls().front(), (Call{"runMaintenanceTask", carrier_->carried(text)}));

    carrier_->helper().setAnswers(Answers::failure({text, 1, text}));
    EXPECT_EQ(size(carrier_->nearEnd(), "/x").error,
              (NSError{carrier_->carried(text), 1, carrier_->carried(text)}));
    static_cast<void>(carrier_->helper().takeCalls());
  }
}

TEST_P(ProtocolConformance, LargeValuesAndExtremeNumbers) {
  constexpr std::size_t kReplySize = std::size_t{10} * 1024 * 1024;
  Answers answers;
  answers.size = std::numeric_limits<std::int64_t>::min();
  answers.message = std::string(kReplySize, 'm');
  answers.document.emplace(kReplySize);
  for (std::size_t i = 0; i < kReplySize; ++i) (*answers.document)[i] = static_cast<std::uint8_t>(i * 7 / 3);
  answers.text = std::string(kReplySize, 't');
  carrier_->helper().setAnswers(answers);
  const std::string argument(65'000, 'a');
  for (const Method& method : methods()) {
    SCOPED_TRACE(method.name);
    EXPECT_TRUE(method.call(carrier_->nearEnd(), argument) == expected(method.parts, answers));
    const Call call{method.name, method.takesArgument ? argument : ""};
    EXPECT_TRUE(carrier_->helper().takeCalls() == std::vector{call});
  }
}

}  // namespace
}  // namespace molvane::testing
