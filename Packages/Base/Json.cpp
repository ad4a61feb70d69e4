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

/// Writes a value from the outside in, with a list of the arrays and objects that are open.
class Writer {
 public:
  std::string write(const JsonValue& value) {
    begin(value);
    while (!open_.empty()) goOn();
    return std::move(text_);
  }

  void operator()(JsonValue::Null) { text_ += "null"; }
  void operator()(bool value) { text_ += value ? "true" : "false"; }
  void operator()(std::int64_t value) { text_ += std::to_string(value); }
  void operator()(std::uint64_t value) { text_ += std::to_string(value); }
  void operator()(double value) {
    if (!std::isfinite(value)) throw std::invalid_argument("JSON has no number that is not finite");
    text_ += nlohmann::json(value).dump();
  }
  void operator()(const std::string& value) { text_ += nlohmann::json(repairedUtf8(value)).dump(); }
  void operator()(const JsonValue::Array& items) {
    text_ += '[';
    open_.push_back({.items = &items});
  }
  void operator()(const JsonValue::Object& members) {
    text_ += '{';
    open_.push_back({.members = &members});
  }

 private:
  struct Open {
    const JsonValue::Array* items = nullptr;  ///< of an array
    const JsonValue::Object* members = nullptr;
    std::size_t written = 0;
  };

  void begin(const JsonValue& value) { std::visit(*this, value.value()); }

  void goOn() {
    Open& open = open_.back();
    const std::size_t size = open.items != nullptr ? open.items->size() : open.members->size();
    if (open.written == size) {
      text_ += open.items != nullptr ? ']' : '}';
      open_.pop_back();
      return;
    }
    if (open.written > 0) text_ += ',';
    const std::size_t next = open.written++;
    if (open.items != nullptr) return begin((*open.items)[next]);
    const JsonValue::Member& member = (*open.members)[next];
    (*this)(member.key);
    text_ += ':';
    begin(member.value);
  }

  std::string text_;
  std::vector<Open> open_;
};

}  // namespace

std::string describe(DecodingFailure, const DecodingContext& context) {
  if (context.codingPath.empty()) return context.debugDescription;
  return context.codingPath + ": " + context.debugDescription;
}

JsonValue parseJson(std::string_view bytes) {
  Builder builder;
  if (!parseInto(builder, bytes)) throw DecodingError(DecodingFailure::dataCorrupted, {{}, kNotJson});
  return builder.take();
}

std::string jsonText(const JsonValue& value) { return Writer().write(value); }

}  // namespace molvane
