#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "HelperKit/Devices/DevicePolicy.hpp"
#include "HelperKit/Devices/linux/SysfsDeviceFacts.hpp"
#include "Platform/ChildProcess.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

// Block devices as other people recorded them on their machines, which are not part of this project:
// NAME.tar.xz holds a machine's sys/ and perhaps proc/, expected.jsonl one line for each device with the
// right answers. An answer that the recording does not give is null and not compared.

namespace molvane {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using Names = std::set<std::string>;

std::string treesFolder() {
  const char* chosen = std::getenv("MOLVANE_DEVICE_TREES");
  return chosen != nullptr ? chosen : "";
}

// Machine -> its lines.
std::map<std::string, std::vector<Json>> expectedAnswers() {
  std::map<std::string, std::vector<Json>> machines;
  std::ifstream file(treesFolder() + "/expected.jsonl");
  for (std::string line; std::getline(file, line);) {
    if (line.empty()) continue;
    Json row = Json::parse(line);
    const std::string machine = row.at("machine");
    machines[machine].push_back(std::move(row));
  }
  return machines;
}

void unpack(const std::string& archive, const std::string& folder) {
  ChildProcess tar({"/bin/tar", {"-xJf", archive, "-C", folder}, ChildProcess::StandardInput::null});
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  std::string output;
  const auto collect = [&](std::string_view piece) { output += piece; };
  if (!tar.pump(deadline, collect) || !tar.drain(deadline, collect) || tar.terminationStatus() != 0) {
    throw std::runtime_error("cannot unpack " + archive + ": " + output);
  }
}

// Compares one machine's answers with what is known, and counts the comparisons.
class Comparison {
 public:
  Comparison(const std::vector<Json>& rows, const SysfsDeviceFacts& facts, const Names& bootDisks)
      : rows_(rows), facts_(facts), bootDisks_(bootDisks) {
    for (const Json& row : rows_) {
      if (row.at("virtual") == true) virtualNames_.insert(row.at("name").get<std::string>());
    }
  }

  void run() {
    for (const Json& row : rows_) compareRow(row);
  }

  [[nodiscard]] const std::map<std::string, std::size_t>& counts() const { return counts_; }

 private:
  template <typename Value>
  void compare(const Json& row, const std::string& field, const Value& answer) {
    if (row.at(field).is_null()) return;
    ++counts_[field];
    EXPECT_EQ(answer, row.at(field).get<Value>()) << row.dump() << " " << field;
  }

  void compareRow(const Json& row) {
    const std::string name = row.at("name");
    const auto facts = facts_.facts(name);
    ASSERT_TRUE(facts) << row.dump();
    compare(row, "whole", facts->isWhole);
    compare(row, "virtual", facts->isVirtual);
    compare(row, "size", facts->sizeBytes);
    compare(row, "blockSize", facts->blockSize);
    compare(row, "removable", facts->isRemovableOrEjectable);
    compare(row, "boot", bootDisks_.count(name) != 0);
    compare(row, "external", !facts->isInternal && !facts->isVirtual);
    if (row.at("external").is_null()) {
      ++counts_["undecided"];
      EXPECT_NE(facts->isInternal, facts->isVirtual) << row.dump();
    }
    if (!row.at("wholeDisks").is_null()) compareDisks(row, facts_.wholeDisks(name));
  }

  // Whether a virtual device counts among the disks below it is left open.
  void compareDisks(const Json& row, Names disks) {
    ++counts_["wholeDisks"];
    for (const std::string& name : virtualNames_) disks.erase(name);
    EXPECT_EQ(disks, row.at("wholeDisks").get<Names>()) << row.dump();
  }

  const std::vector<Json>& rows_;
  const SysfsDeviceFacts& facts_;
  const Names& bootDisks_;
  Names virtualNames_;
  std::map<std::string, std::size_t> counts_;
};

// A policy over these disks alone would give up exactly the external ones.
void expectOnlyExternalTargets(const std::vector<Json>& rows, const DevicePolicy& policy) {
  for (const Json& row : rows) {
    bool accepted = true;
    try {
      (void)policy.validateTargetDevice(row.at("name"));
    } catch (const DevicePolicyError&) {
      accepted = false;
    }
    const bool mayBe = row.at("external") == true && row.at("whole") == true && row.at("boot") != true;
    EXPECT_EQ(accepted, mayBe) << row.dump();
  }
}

TEST(RecordedTreesTest, giveTheRightAnswers) {
  if (treesFolder().empty()) GTEST_SKIP() << "MOLVANE_DEVICE_TREES does not name the recorded trees";
  std::map<std::string, std::size_t> counts;
  std::size_t machines = 0;
  for (const auto& [machine, rows] : expectedAnswers()) {
    SCOPED_TRACE(machine);
    const TemporaryFolder scratch;
    ASSERT_NO_THROW(unpack(treesFolder() + "/" + machine + ".tar.xz", scratch.path()));
    const std::string table = scratch.path() + "/proc/self/mountinfo";
    auto facts = std::make_shared<SysfsDeviceFacts>(
        SysfsDeviceFacts::Places{scratch.path() + "/sys", table, scratch.path() + "/dev"});
    const Names bootDisks = fs::exists(table) ? facts->bootWholeDisks() : Names();
    Comparison comparison(rows, *facts, bootDisks);
    comparison.run();
    expectOnlyExternalTargets(rows, {facts, bootDisks, nullptr, nullptr});
    for (const auto& [field, count] : comparison.counts()) counts[field] += count;
    ++machines;

    // Hidden paths to a disk are no disks.
    for (const auto& entry : fs::directory_iterator(scratch.path() + "/sys/class/block")) {
      const std::string name = entry.path().filename();
      const bool isKnown =
          std::any_of(rows.begin(), rows.end(), [&](const Json& row) { return row.at("name") == name; });
      EXPECT_EQ(facts->facts(name).has_value(), isKnown) << name;
    }
  }
  EXPECT_GE(machines, 46U);
  for (const char* field : {"whole", "virtual", "size", "blockSize", "removable", "boot", "external",
                            "undecided", "wholeDisks"}) {
    EXPECT_GT(counts[field], 50U) << field;
    RecordProperty(field, static_cast<int>(counts[field]));
  }
}

}  // namespace
}  // namespace molvane
