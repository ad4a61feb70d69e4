#include <gtest/gtest.h>

#include "GoldenRows.hpp"

// What can be said of every row without the type that it is for. The types have their own sources.

namespace molvane::golden {
namespace {

bool isJson(const std::string& document) {
  try {
    (void)parseJson(document);
    return true;
  } catch (const DecodingError&) {
    return false;
  }
}

/// Refused by the platform's decoder and by strict parsers alike, before any type was looked at.
bool isMalformed(const Row& row) {
  return !row.fields().at("strict").get<bool>() &&
         row.fields().value("error", "") == "dataCorrupted: The given data was not valid JSON.";
}

TEST(GoldenJson, WhatDecodesIsJson) {
  checkRows(
      "json.jsonl",
      [](Row& row) {
        if (!isJson(row.bytes("input"))) row.fail("refused");
      },
      [](const Row& row) {
        return row.fields().at("ok").get<bool>() && row.fields().at("strict").get<bool>();
      });
}

TEST(GoldenJson, WhatIsMalformedIsRefused) {
  checkRows(
      "json.jsonl",
      [](Row& row) {
        if (isJson(row.bytes("input"))) row.fail("accepted");
      },
      isMalformed);
}

TEST(GoldenJson, WhatWasReadIsWrittenAsTheSame) {
  checkRows(
      "json.jsonl",
      [](Row& row) {
        const std::string value = row.fields().at("value").get<std::string>();
        if (nlohmann::json::parse(jsonText(parseJson(value))) != nlohmann::json::parse(value))
          row.fail("changed");
      },
      [](const Row& row) { return row.has("value"); });
}

}  // namespace
}  // namespace molvane::golden
