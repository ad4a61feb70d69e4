#include "Base/Json.hpp"

#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "Base/JsonNumber.hpp"
#include "Base/Utf8.hpp"

namespace molvane {

namespace {

constexpr const char* kNotJson = "The given data was not valid JSON.";

JsonValue numberOf(const std::string& literal, double value) {
  const std::optional<WholeNumber> whole = wholeNumberOf(literal);
  if (!whole) return JsonValue(value);
  return std::visit([](auto number) { return JsonValue(number); }, *whole);
}

/// Takes the parser's events, which do not recurse, and builds the value. Each answers whether to go on.
class Builder : public nlohmann::json_sax<nlohmann::json> {
 public:
  bool null() override { return add(JsonValue()); }
  bool boolean(bool value) override { return add(JsonValue(value)); }
  bool number_integer(std::int64_t value) override { return add(JsonValue(value)); }
  bool number_unsigned(std::uint64_t value) override {
    return add(value <= INT64_MAX ? JsonValue(static_cast<std::int64_t>(value)) : JsonValue(value));
  }
  bool number_float(double value, const std::string& literal) override {
    return add(numberOf(literal, value));
  }
  bool string(std::string& value) override { return add(JsonValue(std::move(value))); }
  bool binary(nlohmann::json::binary_t&) override { return false; }

  bool start_array(std::size_t) override { return open(JsonValue::Array()); }
  bool end_array() override { return close<JsonValue::Array>(); }
  bool start_object(std::size_t) override { return open(JsonValue::Object()); }
  bool end_object() override { return close<JsonValue::Object>(); }
  bool key(std::string& key) override {
    std::get<JsonValue::Object>(open_.back()).push_back({std::move(key), JsonValue()});
    return true;
  }

  bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception&) override {
    return false;
  }

  JsonValue take() { return std::move(root_); }

 private:
  using Container = std::variant<JsonValue::Array, JsonValue::Object>;

  bool add(JsonValue value) {
    if (open_.empty()) {
      root_ = std::move(value);
    } else if (auto* array = std::get_if<JsonValue::Array>(&open_.back())) {
      array->push_back(std::move(value));
    } else {
      std::get<JsonValue::Object>(open_.back()).back().value = std::move(value);
    }
    return true;
  }

  bool open(Container container) {
    if (open_.size() == kMaximumJsonDepth) return false;
    open_.push_back(std::move(container));
    return true;
  }

  template <typename T>
  bool close() {
    JsonValue value(std::get<T>(std::move(open_.back())));
    open_.pop_back();
    return add(std::move(value));
  }

  std::vector<Container> open_;
  JsonValue root_;
};

bool parseInto(Builder& builder, std::string_view bytes) {
  if (bytes.size() > kMaximumJsonSize) return false;
  // The parser takes a NUL for the end of the document and passes over a byte order mark.
  if (bytes.find('\0') != std::string_view::npos || bytes.substr(0, 3) == "\xEF\xBB\xBF") return false;
  return nlohmann::json::sax_parse(bytes.begin(), bytes.end(), &builder);
}

void append(std::string& text, const JsonValue& value);

void appendQuoted(std::string& text, const std::string& content) {
  text += nlohmann::json(repairedUtf8(content)).dump();
}

void append(std::string& text, double number) {
  if (!std::isfinite(number)) throw std::invalid_argument("JSON has no number that is not finite");
  text += nlohmann::json(number).dump();
}

template <typename Container, typename AppendElement>
void appendAll(std::string& text, char opening, const Container& elements, char closing,
               AppendElement appendElement) {
  text += opening;
  bool first = true;
  for (const auto& element : elements) {
    if (!first) text += ',';
    first = false;
    appendElement(element);
  }
  text += closing;
}

struct Append {
  std::string& text;

  void operator()(JsonValue::Null) const { text += "null"; }
  void operator()(bool value) const { text += value ? "true" : "false"; }
  void operator()(std::int64_t value) const { text += std::to_string(value); }
  void operator()(std::uint64_t value) const { text += std::to_string(value); }
  void operator()(double value) const { append(text, value); }
  void operator()(const std::string& value) const { appendQuoted(text, value); }
  void operator()(const JsonValue::Array& items) const {
    appendAll(text, '[', items, ']', [this](const JsonValue& item) { append(text, item); });
  }
  void operator()(const JsonValue::Object& members) const {
    appendAll(text, '{', members, '}', [this](const JsonValue::Member& member) {
      appendQuoted(text, member.key);
      text += ':';
      append(text, member.value);
    });
  }
};

void append(std::string& text, const JsonValue& value) { std::visit(Append{text}, value.value()); }

}  // namespace

std::string describe(DecodingFailure, const DecodingContext& context) {
  if (context.codingPath.empty()) return context.debugDescription;
  return context.codingPath + ": " + context.debugDescription;
}

bool JsonValue::isNumber() const noexcept {
  return std::holds_alternative<std::int64_t>(value_) || std::holds_alternative<std::uint64_t>(value_) ||
         std::holds_alternative<double>(value_);
}

const JsonValue* JsonValue::find(std::string_view key) const noexcept {
  if (const auto* members = as<Object>()) {
    for (const Member& member : *members) {
      if (member.key == key) return &member.value;
    }
  }
  return nullptr;
}

JsonValue parseJson(std::string_view bytes) {
  Builder builder;
  if (!parseInto(builder, bytes)) throw DecodingError(DecodingFailure::dataCorrupted, {{}, kNotJson});
  return builder.take();
}

std::string jsonText(const JsonValue& value) {
  std::string text;
  append(text, value);
  return text;
}

}  // namespace molvane
