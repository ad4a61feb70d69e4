#include "Base/JsonCoding.hpp"

#include <cmath>
#include <limits>

namespace molvane {

namespace {

[[noreturn]] void fail(DecodingFailure failure, std::string debugDescription) {
  throw DecodingError(failure, {{}, std::move(debugDescription)});
}

struct FoundName {
  std::string operator()(JsonValue::Null) const { return "null"; }
  std::string operator()(bool) const { return "bool"; }
  std::string operator()(const std::string&) const { return "a string"; }
  std::string operator()(const JsonValue::Array&) const { return "an array"; }
  std::string operator()(const JsonValue::Object&) const { return "a dictionary"; }
  template <typename Number>
  std::string operator()(Number) const {
    return "number";
  }
};

[[noreturn]] void throwMismatch(const std::string& expected, const JsonValue& found) {
  if (found.isNull()) {
    fail(DecodingFailure::valueNotFound,
         "Cannot get value of type " + expected + " -- found null value instead");
  }
  fail(DecodingFailure::typeMismatch, "Expected to decode " + expected + " but found " +
                                          std::visit(FoundName(), found.value()) + " instead.");
}

template <typename T>
const T& expect(const JsonValue& json, const char* expected) {
  const T* value = json.as<T>();
  if (value == nullptr) throwMismatch(expected, json);
  return *value;
}

template <typename Integer>
Integer integerIn(const JsonValue& json, const char* expected) {
  if (!json.isNumber()) throwMismatch(expected, json);
  const auto* value = json.as<std::int64_t>();
  if (value == nullptr || *value < static_cast<std::int64_t>(std::numeric_limits<Integer>::min()) ||
      *value > static_cast<std::int64_t>(std::numeric_limits<Integer>::max())) {
    fail(DecodingFailure::dataCorrupted, std::string("The number is not representable in ") + expected + ".");
  }
  return static_cast<Integer>(*value);
}

}  // namespace

void fromJson(const JsonValue& json, bool& value) { value = expect<bool>(json, "Bool"); }

void fromJson(const JsonValue& json, std::int64_t& value) { value = integerIn<std::int64_t>(json, "Int64"); }

void fromJson(const JsonValue& json, std::uint32_t& value) {
  value = integerIn<std::uint32_t>(json, "UInt32");
}

void fromJson(const JsonValue& json, double& value) {
  if (const auto* whole = json.as<std::int64_t>()) {
    value = static_cast<double>(*whole);
  } else if (const auto* large = json.as<std::uint64_t>()) {
    value = static_cast<double>(*large);
  } else {
    value = expect<double>(json, "Double");
  }
}

void fromJson(const JsonValue& json, std::string& value) { value = expect<std::string>(json, "String"); }

void fromJson(const JsonValue& json, Date& value) { fromJson(json, value.secondsSinceReference); }

void fromJson(const JsonValue& json, Iso8601Date& value) {
  const std::optional<Date> date = dateFromIso8601(expect<std::string>(json, "String"));
  if (!date) fail(DecodingFailure::dataCorrupted, "Expected date string to be ISO8601-formatted.");
  value.date = *date;
}

JsonValue toJson(bool value) { return JsonValue(value); }

JsonValue toJson(std::int64_t value) { return JsonValue(value); }

JsonValue toJson(std::uint32_t value) { return JsonValue(std::int64_t{value}); }

JsonValue toJson(double value) {
  // Up to here doubles hold every whole number, so that nothing is lost.
  constexpr double kExact = 9007199254740992;
  if (std::trunc(value) == value && std::abs(value) <= kExact)
    return JsonValue(static_cast<std::int64_t>(value));
  return JsonValue(value);
}

JsonValue toJson(std::string value) { return JsonValue(std::move(value)); }

JsonValue toJson(Date value) { return toJson(value.secondsSinceReference); }

JsonValue toJson(const Iso8601Date& value) { return JsonValue(iso8601Text(value.date)); }

namespace json {

const JsonValue::Array& elements(const JsonValue& array) {
  return expect<JsonValue::Array>(array, "Array<Any>");
}

void rethrowBelow(const std::string& step, const DecodingError& error) {
  DecodingContext context = error.payload();
  context.codingPath = context.codingPath.empty() ? step : step + "." + context.codingPath;
  throw DecodingError(error.which(), std::move(context));
}

void throwKeyNotFound(std::string_view key) {
  fail(DecodingFailure::keyNotFound, "No value associated with key \"" + std::string(key) + "\".");
}

}  // namespace json

JsonObjectReader::JsonObjectReader(const JsonValue& json) : json_(json) {
  (void)expect<JsonValue::Object>(json, "Dictionary<String, Any>");
}

std::string_view JsonObjectReader::onlyCase(std::span<const std::string_view> cases) const {
  std::string_view only;
  int found = 0;
  for (const std::string_view name : cases) {
    if (json_.find(name) == nullptr) continue;
    only = name;
    ++found;
  }
  if (found != 1) fail(DecodingFailure::typeMismatch, "Invalid number of keys found, expected one.");
  return only;
}

void throwUnknownCase() {
  fail(DecodingFailure::dataCorrupted, "Cannot initialize the enumeration from an invalid String value");
}

}  // namespace molvane
