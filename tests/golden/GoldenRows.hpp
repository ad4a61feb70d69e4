#pragma once

#include <cstddef>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Base/JsonCoding.hpp"

// The frame of the golden tests: a file of cases for each kind of row, a small source file here for each of
// them. Whoever builds what a file pins adds such a source with a TEST of its own.

namespace molvane::golden {

/// The bytes that a base64 value of a row stands for.
[[nodiscard]] std::string bytesOf(const nlohmann::json& value);

/// One case: the object of one line, and the differences found in it.
class Row {
 public:
  explicit Row(nlohmann::json fields) : fields_(std::move(fields)) {}

  [[nodiscard]] const nlohmann::json& fields() const { return fields_; }
  /// Some columns are left out where the platform's answer is no rule.
  [[nodiscard]] bool has(const std::string& key) const { return fields_.contains(key); }
  /// The value of a column that holds base64.
  [[nodiscard]] std::string bytes(const std::string& key) const { return bytesOf(fields_.at(key)); }

  /// Compares what came out with a column: as it is, or as the bytes of a base64 column.
  void expect(const std::string& key, const nlohmann::json& got);
  void expectBytes(const std::string& key, const std::string& got);
  /// Notes a difference that is no matter of one column.
  void fail(const std::string& what) { differences_.push_back(what); }

  [[nodiscard]] const std::vector<std::string>& differences() const { return differences_; }

 private:
  nlohmann::json fields_;
  std::vector<std::string> differences_;
};

/// Runs `check` over the rows of a file and fails the running test when it finds differences, the first of
/// which are printed in full. `belongs` picks the rows that count; the test fails when there is none.
void checkRows(
    const std::string& file, const std::function<void(Row&)>& check,
    const std::function<bool(const Row&)>& belongs = [](const Row&) { return true; });

/// What a JSON document is as one of our types, written again. Throws a DecodingError for a document that is
/// none.
using Reencode = std::function<std::string(std::string_view)>;

/// Checks the rows of json.jsonl of that type.
void checkJsonRows(const std::string& type, const Reencode& reencode);

template <typename T>
void checkJsonRows(const std::string& type) {
  checkJsonRows(type, [](std::string_view document) { return encodedJson(decodedJson<T>(document)); });
}

}  // namespace molvane::golden
