#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "Base/Base64.hpp"
#include "Base/Json.hpp"
#include "Corpora.hpp"

namespace molvane::corpora {
namespace {

std::optional<JsonValue> parsed(const std::string& document) {
  try {
    return parseJson(document);
  } catch (const DecodingError&) {
    return std::nullopt;
  }
}

/// Each document also comes as an unknown member of a request. Whatever it holds, the request stays the one
/// that it is.
void expectUntouchedRequest(const std::string& name, const JsonValue& request) {
  const JsonValue* action = request.find("setTimeMachineDestination");
  const JsonValue* path = action != nullptr ? action->find("volumePath") : nullptr;
  const auto* text = path != nullptr ? path->as<std::string>() : nullptr;
  EXPECT_TRUE(text != nullptr && *text == "/Volumes/Backup") << name;
}

TEST(Corpora, Json) {
  MOLVANE_NEEDS_CORPORA();
  // The folder's own script judges each document by two parsers that are not ours.
  std::istringstream cases(outputOf("/usr/bin/python3", {folder() + "/replay_json.py"}));
  Tally tally;
  for (std::string line; std::getline(cases, line);) {
    const nlohmann::json one = nlohmann::json::parse(line);
    const std::string name = one.at("file").get<std::string>() + ", " + one.at("form").get<std::string>();
    const std::string document = base64Decoded(one.at("wrapped").get<std::string>()).value();
    const std::optional<JsonValue> value = parsed(document);
    tally.note(name, verdictNamed(one.at("expected").get<std::string>()), value.has_value());
    if (!value) continue;
    if (one.at("form") == "wrapped") expectUntouchedRequest(name, *value);
    EXPECT_EQ(nlohmann::json::parse(jsonText(*value)), nlohmann::json::parse(document)) << name;
  }
  tally.report();
}

}  // namespace
}  // namespace molvane::corpora
