#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Harness.hpp"

namespace molvane::e2e {
namespace {

using testing::HasSubstr;

constexpr int kRefused = 1;
constexpr int kUsage = 2;
constexpr int kNoConnection = 3;

TEST(Client, UsageErrorsStartNothing) {
  endHelper();
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                    {"no-such-command"},
                                                    {"remove"},
                                                    {"size"},
                                                    {"task"},
                                                    {"task", "run"},
                                                    {"ping", "--no-such-option"},
                                                    {"--socket"}}) {
    const Outcome outcome = molvanectl(arguments);
    EXPECT_EQ(outcome.status, kUsage) << testing::PrintToString(arguments) << testing::PrintToString(outcome);
    EXPECT_EQ(outcome.out, "") << testing::PrintToString(arguments);
    EXPECT_NE(outcome.err, "") << testing::PrintToString(arguments);
  }
  EXPECT_EQ(helperProcess(), std::nullopt);
}

TEST(Client, HelpIsNoError) {
  const Outcome outcome = molvanectl({"--help"});
  EXPECT_EQ(outcome.status, 0);
  for (const char* command : {"ping", "size", "remove", "task"}) EXPECT_THAT(outcome.out, HasSubstr(command));
}

TEST(Client, TellsThatNobodyAnswers) {
  writeFile("/tmp/no-socket", "");
  for (const std::string socket : {"/tmp/no-such-socket", "/tmp/no-socket", "/tmp"}) {
    const Outcome outcome = molvanectl({"--socket", socket, "ping"});
    EXPECT_EQ(outcome.status, kNoConnection) << testing::PrintToString(outcome);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, testing::StartsWith("molvanectl: "));
  }
}

TEST(Client, PrintsOneJsonObjectAResult) {
  const CacheFolder folder("json");
  writeFile(folder / "file", "123");
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--json", "ping"},
                                                    {"--json", "size", folder.path()},
                                                    {"--json", "remove", folder / "file"},
                                                    {"--json", "task", "run", "purge-memory"}}) {
    const Outcome outcome = molvanectl(arguments);
    EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
    const auto document = nlohmann::json::parse(outcome.out, nullptr, false);
    EXPECT_TRUE(document.is_object()) << testing::PrintToString(outcome);
  }
}

TEST(Client, RefusalsHaveTheirOwnStatus) {
  EXPECT_EQ(molvanectl({"size", "/etc"}).status, kRefused);
  EXPECT_EQ(molvanectl({"--json", "size", "/etc"}).status, kRefused);
}

}  // namespace
}  // namespace molvane::e2e
