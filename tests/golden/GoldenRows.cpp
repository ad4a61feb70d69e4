#include "GoldenRows.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "Base/Base64.hpp"

namespace molvane::golden {

namespace {

constexpr std::size_t kMostRowsPrinted = 5;

std::string folder() {
  const char* chosen = std::getenv("MOLVANE_GOLDEN");
  return chosen != nullptr ? chosen : MOLVANE_GOLDEN_CASES;
}

void forEachRow(const std::string& file, const std::function<bool(const Row&)>& belongs,
                const std::function<void(Row&)>& use) {
  std::ifstream lines(folder() + "/" + file);
  if (!lines) throw std::runtime_error("cannot read " + folder() + "/" + file);
  for (std::string line; std::getline(lines, line);) {
    Row row(nlohmann::json::parse(line));
    if (belongs(row)) use(row);
  }
}

std::string printable(const nlohmann::json& value) {
  return value.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

void compareJson(Row& row, const Reencode& reencode) {
  const bool mayBeRead = row.fields().at("ok").get<bool>();
  const bool mustBeRead = mayBeRead && row.fields().at("strict").get<bool>();
  try {
    const nlohmann::json got = nlohmann::json::parse(reencode(row.bytes("input")));
    if (!mayBeRead) {
      row.fail("read as " + printable(got) + ", should be refused");
    } else if (got != nlohmann::json::parse(row.fields().at("value").get<std::string>())) {
      row.fail("read as " + printable(got));
    }
  } catch (const DecodingError& error) {
    if (mustBeRead) row.fail(std::string("refused: ") + error.what());
  }
}

}  // namespace

std::string bytesOf(const nlohmann::json& value) {
  const std::optional<std::string> decoded = base64Decoded(value.get<std::string>());
  if (!decoded) throw std::runtime_error("no base64: " + value.dump());
  return *decoded;
}

void Row::expect(const std::string& key, const nlohmann::json& got) {
  const nlohmann::json& expected = fields_.at(key);
  if (got != expected) fail(key + ": got " + printable(got) + ", expected " + printable(expected));
}

void Row::expectBytes(const std::string& key, const std::string& got) {
  const std::string expected = bytes(key);
  if (got != expected) fail(key + ": got " + printable(got) + ", expected " + printable(expected));
}

void checkRows(const std::string& file, const std::function<void(Row&)>& check,
               const std::function<bool(const Row&)>& belongs) {
  std::size_t rows = 0;
  std::size_t different = 0;
  forEachRow(file, belongs, [&](Row& row) {
    ++rows;
    check(row);
    if (row.differences().empty()) return;
    if (++different > kMostRowsPrinted) return;
    std::string report = printable(row.fields());
    for (const std::string& difference : row.differences()) report += "\n  " + difference;
    ADD_FAILURE() << file << ": " << report;
  });
  EXPECT_GT(rows, 0U) << file << " holds no such row";
  EXPECT_EQ(different, 0U) << "of " << rows << " rows in " << file;
  testing::Test::RecordProperty("rows", static_cast<int>(rows));
}

void checkJsonRows(const std::string& type, const Reencode& reencode) {
  checkRows(
      "json.jsonl", [&](Row& row) { compareJson(row, reencode); },
      [&](const Row& row) { return row.fields().at("type") == type; });
}

}  // namespace molvane::golden
