#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/Date.hpp"
#include "Base/Json.hpp"

// How types are written as JSON documents and read from them. A type takes part by two functions in its own
// namespace, which the templates here find:
//
//   void fromJson(const JsonValue& json, LocalAccount& account) {
//     const JsonObjectReader object(json);
//     object.read("name", account.name);          // required
//     object.read("fileVault", account.proof);    // a std::optional: absent and null give nothing
//   }
//
//   JsonValue toJson(const LocalAccount& account) {
//     return JsonObjectWriter().add("name", account.name).add("fileVault", account.proof).take();
//   }
//
// An absent optional is left out when written, never null. Unknown members are passed over when read.

namespace molvane {

// What the language and the packages below bring. All fromJson throw a DecodingError when `json` is something
// else: valueNotFound for a null, typeMismatch for another type, dataCorrupted for a number or text out of
// range.
void fromJson(const JsonValue& json, bool& value);
/// Whole numbers only, however written.
void fromJson(const JsonValue& json, std::int64_t& value);
void fromJson(const JsonValue& json, std::uint32_t& value);
void fromJson(const JsonValue& json, double& value);
void fromJson(const JsonValue& json, std::string& value);
/// Seconds since the reference date, as a number.
void fromJson(const JsonValue& json, Date& value);

[[nodiscard]] JsonValue toJson(bool value);
[[nodiscard]] JsonValue toJson(std::int64_t value);
[[nodiscard]] JsonValue toJson(std::uint32_t value);
/// Must be finite, or the document cannot be written.
[[nodiscard]] JsonValue toJson(double value);
[[nodiscard]] JsonValue toJson(std::string value);
[[nodiscard]] JsonValue toJson(Date value);
[[nodiscard]] inline JsonValue toJson(JsonValue value) { return value; }
JsonValue toJson(const char*) = delete;

/// A date that is written and read as ISO 8601 text in whole seconds, as by iso8601Text and dateFromIso8601.
struct Iso8601Date {
  Date date;
  bool operator==(const Iso8601Date&) const = default;
};
void fromJson(const JsonValue& json, Iso8601Date& value);
[[nodiscard]] JsonValue toJson(const Iso8601Date& value);

namespace json {
/// The elements of an array. Throws a DecodingError when it is none.
const JsonValue::Array& elements(const JsonValue& array);
/// Throws `error` again with `step`, a key or an index, in front of its coding path.
[[noreturn]] void rethrowBelow(const std::string& step, const DecodingError& error);
[[noreturn]] void throwKeyNotFound(std::string_view key);
}  // namespace json

template <typename T>
void fromJson(const JsonValue& json, std::vector<T>& values) {
  values.clear();
  for (const JsonValue& element : json::elements(json)) {
    try {
      fromJson(element, values.emplace_back());
    } catch (const DecodingError& error) {
      json::rethrowBelow(std::to_string(values.size() - 1), error);
    }
  }
}

template <typename T>
[[nodiscard]] JsonValue toJson(const std::vector<T>& values) {
  JsonValue::Array elements;
  elements.reserve(values.size());
  for (const T& value : values) elements.push_back(toJson(value));
  return JsonValue(std::move(elements));
}

/// Reads the members of an object. Holds a reference: the value must outlive it.
class JsonObjectReader {
 public:
  /// Throws a DecodingError when `json` is no object.
  explicit JsonObjectReader(const JsonValue& json);

  /// Reads the member of that key. Throws a DecodingError when it is absent or does not decode.
  template <typename T>
  void read(std::string_view key, T& value) const {
    const JsonValue* member = json_.find(key);
    if (member == nullptr) json::throwKeyNotFound(key);
    readMember(key, *member, value);
  }

  /// Reads the member of that key; nothing when it is absent or null. Throws a DecodingError when it does not
  /// decode.
  template <typename T>
  void read(std::string_view key, std::optional<T>& value) const {
    value.reset();
    const JsonValue* member = json_.find(key);
    if (member != nullptr && !member->isNull()) readMember(key, *member, value.emplace());
  }

  /// For a union of cases, written as an object with one member, whose key names the case: the one of `cases`
  /// that is a key here. Throws a DecodingError of typeMismatch, "Invalid number of keys found, expected
  /// one.", when there is none or several; other keys do not count.
  [[nodiscard]] std::string_view onlyCase(std::span<const std::string_view> cases) const;

 private:
  template <typename T>
  static void readMember(std::string_view key, const JsonValue& member, T& value) {
    try {
      fromJson(member, value);
    } catch (const DecodingError& error) {
      json::rethrowBelow(std::string(key), error);
    }
  }

  const JsonValue& json_;
};

/// Puts an object together, in the order of the calls.
class JsonObjectWriter {
 public:
  template <typename T>
  JsonObjectWriter& add(std::string key, const T& value) {
    members_.push_back({std::move(key), toJson(value)});
    return *this;
  }
  template <typename T>
  JsonObjectWriter& add(std::string key, const std::optional<T>& value) {
    return value ? add(std::move(key), *value) : *this;
  }

  /// The object. Ends this writer.
  [[nodiscard]] JsonValue take() { return JsonValue(std::move(members_)); }

 private:
  JsonValue::Object members_;
};

/// The document `bytes` as a T. Throws a DecodingError when it is no JSON or no T.
template <typename T>
[[nodiscard]] T decodedJson(std::string_view bytes) {
  T value{};
  fromJson(parseJson(bytes), value);
  return value;
}

/// `value` as a document.
template <typename T>
[[nodiscard]] std::string encodedJson(const T& value) {
  return jsonText(toJson(value));
}

/// Throws the DecodingError for a text that names no case of an enumeration; for its fromJson.
[[noreturn]] void throwUnknownCase();

}  // namespace molvane
