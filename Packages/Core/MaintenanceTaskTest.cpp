#include "Core/MaintenanceTask.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "Base/JsonCoding.hpp"

namespace molvane {
namespace {

using ::testing::ElementsAre;

std::vector<std::string_view> idsWhere(bool (MaintenanceTask::*property)() const) {
  std::vector<std::string_view> ids;
  for (const MaintenanceTask task : MaintenanceTask::allCases()) {
    if ((task.*property)()) ids.push_back(task.rawValue());
  }
  return ids;
}

TEST(MaintenanceTask, ParsesExactlyTheIdsOfTheCatalogue) {
  for (const MaintenanceTask task : MaintenanceTask::allCases()) {
    EXPECT_EQ(MaintenanceTask::parse(task.rawValue()), task);
  }
  EXPECT_EQ(MaintenanceTask::parse("restart-mac")->which(), MaintenanceTask::restartMac);
  for (const std::string_view id :
       {"", "Flush-dns", " flush-dns", "flush-dns ", "flush-dns\n", "flushDNS", "flush"}) {
    EXPECT_EQ(MaintenanceTask::parse(id), std::nullopt) << id;
  }
  EXPECT_EQ(MaintenanceTask::parse(std::string_view("flush-dns\0", 10)), std::nullopt);
}

TEST(MaintenanceTask, IsHashableAndCodedAsItsId) {
  const auto& all = MaintenanceTask::allCases();
  const std::unordered_set<MaintenanceTask> set(all.begin(), all.end());
  EXPECT_EQ(set.size(), all.size());
  const std::vector<MaintenanceTask> tasks = {MaintenanceTask::restartMac, MaintenanceTask::flushDNS};
  EXPECT_EQ(encodedJson(tasks), R"(["restart-mac","flush-dns"])");
  EXPECT_EQ(decodedJson<std::vector<MaintenanceTask>>(encodedJson(tasks)), tasks);
  for (const char* const document : {R"("Flush-dns")", "0", "null", "{}"}) {
    EXPECT_THROW((void)decodedJson<MaintenanceTask>(document), DecodingError) << document;
  }
}

TEST(MaintenanceTask, OnlyTheseNeedRootAndOnlyTheseAreSlow) {
  EXPECT_THAT(
      idsWhere(&MaintenanceTask::requiresRoot),
      ElementsAre("flush-dns", "reindex-spotlight", "purge-memory", "download-updates", "restart-mac"));
  EXPECT_THAT(idsWhere(&MaintenanceTask::isSlow),
              ElementsAre("reindex-spotlight", "verify-boot-volume", "download-updates"));
}

TEST(MaintenanceTask, EveryEntryIsComplete) {
  std::set<std::string_view> texts;
  for (const MaintenanceTask task : MaintenanceTask::allCases()) {
    for (const std::string_view text :
         {task.title(), task.detail(), task.successSummary(), task.failureSummary()}) {
      EXPECT_FALSE(text.empty()) << task.rawValue();
      EXPECT_TRUE(texts.insert(text).second) << text;
    }
    ASSERT_FALSE(task.commands().empty()) << task.rawValue();
    for (const MaintenanceTask::Command& command : task.commands()) {
      EXPECT_TRUE(command.executable.starts_with('/')) << command.executable;
    }
  }
  EXPECT_EQ(MaintenanceTask(MaintenanceTask::purgeMemory).commands(),
            (std::vector<MaintenanceTask::Command>{{"/usr/sbin/purge", {}}}));
}

}  // namespace
}  // namespace molvane
