#include <expat.h>

#include <array>
#include <charconv>
#include <exception>
#include <locale>
#include <memory>
#include <sstream>
#include <utility>

#include "Base/Base64.hpp"
#include "Base/PropertyListReaders.hpp"

namespace molvane {

namespace {

enum class Tag { plist, dictionary, array, key, string, integer, real, trueValue, falseValue, date, data };

struct NamedTag {
  std::string_view name;
  Tag tag;
};

// Those that are met most come first.
constexpr std::array<NamedTag, 11> kTags = {{{"string", Tag::string},
                                             {"key", Tag::key},
                                             {"array", Tag::array},
                                             {"dict", Tag::dictionary},
                                             {"plist", Tag::plist},
                                             {"integer", Tag::integer},
                                             {"real", Tag::real},
                                             {"true", Tag::trueValue},
                                             {"false", Tag::falseValue},
                                             {"date", Tag::date},
                                             {"data", Tag::data}}};

std::optional<Tag> tagNamed(std::string_view name) {
  for (const NamedTag& known : kTags) {
    if (known.name == name) return known.tag;
  }
  return std::nullopt;
}

bool holdsValues(Tag tag) { return tag == Tag::plist || tag == Tag::dictionary || tag == Tag::array; }

constexpr std::string_view kXmlSpace = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kXmlSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kXmlSpace) + 1 - first);
}

template <typename Integer>
std::optional<Integer> wholeNumber(std::string_view digits, int base) {
  Integer value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return value;
}

/// Decimal with an optional sign, or hexadecimal after "0x".
std::optional<PropertyList> integerValue(std::string_view text) {
  const bool hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
  if (hexadecimal) text.remove_prefix(2);
  if (!hexadecimal && text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  const int base = hexadecimal ? 16 : 10;
  if (hexadecimal && text.substr(0, 1) == "-") return std::nullopt;
  if (const auto value = wholeNumber<std::int64_t>(text, base)) return PropertyList(*value);
  if (const auto value = wholeNumber<std::uint64_t>(text, base)) return PropertyList(*value);
  return std::nullopt;
}

std::optional<PropertyList> realValue(std::string_view text) {
  std::istringstream stream{std::string(text)};
  stream.imbue(std::locale::classic());
  double value = 0;
  stream >> std::noskipws >> value;
  if (stream.fail() || stream.peek() != std::istringstream::traits_type::eof()) return std::nullopt;
  return PropertyList(value);
}

std::optional<PropertyList> dateValue(std::string_view text) {
  const std::optional<Date> date = dateFromIso8601(text);
  if (!date || !isPropertyListDate(*date)) return std::nullopt;
  return PropertyList(*date);
}

std::optional<PropertyList> dataValue(std::string_view text) {
  std::string digits;
  digits.reserve(text.size());
  for (const char c : text) {
    if (kXmlSpace.find(c) == std::string_view::npos) digits += c;
  }
  std::optional<std::string> bytes = base64Decoded(digits);
  if (!bytes) return std::nullopt;
  return PropertyList(PropertyList::Data{std::move(*bytes)});
}

/// Builds the value from the parser's events. Each of them answers whether the document is still a property
/// list.
class Builder {
 public:
  explicit Builder(const PropertyListHandler* onElement) : onElement_(onElement) {}

  bool start(std::string_view name) {
    const std::optional<Tag> tag = tagNamed(name);
    if (!tag || leaf_ || !mayStart(*tag)) return false;
    if (!holdsValues(*tag)) {
      leaf_ = tag;
      text_.clear();
      return true;
    }
    // The plist element is open as well, so that this counts what would be open with a new container.
    if (open_.size() > kMaximumPropertyListDepth) return false;
    open_.emplace_back(*tag);
    return true;
  }

  bool characters(std::string_view text) {
    if (leaf_) {
      text_ += text;
      return true;
    }
    return !open_.empty() && trimmed(text).empty();
  }

  bool end() {
    if (leaf_) return endLeaf(*std::exchange(leaf_, std::nullopt));
    Container ended = std::move(open_.back());
    open_.pop_back();
    if (ended.tag == Tag::plist) {
      if (ended.items.empty()) return false;
      root_ = std::move(ended.items.front());
      return true;
    }
    if (ended.tag == Tag::array) return add(PropertyList(std::move(ended.items)));
    return !ended.hasKey && add(PropertyList::dictionary(std::move(ended.entries)));
  }

  /// The plist element has ended with its value.
  [[nodiscard]] bool isComplete() const { return root_.has_value(); }
  std::optional<PropertyList> take() { return std::move(root_); }

 private:
  // The plist element, and what it holds.
  static constexpr std::size_t kDepthAtTop = 2;

  /// An element that holds values. The others stand one at a time and are leaves.
  struct Container {
    explicit Container(Tag which) : tag(which) {
      if (tag == Tag::dictionary) entries.reserve(8);
    }

    Tag tag;
    bool hasKey = false;  ///< `key` waits for its value
    std::string key;
    PropertyList::Dictionary entries;
    PropertyList::Array items;
  };

  [[nodiscard]] bool mayStart(Tag tag) const {
    if (open_.empty() || tag == Tag::plist) return open_.empty() && tag == Tag::plist;
    const Container& parent = open_.back();
    if (parent.tag == Tag::dictionary) return (tag == Tag::key) != parent.hasKey;
    return tag != Tag::key && (parent.tag == Tag::array || parent.items.empty());
  }

  bool endLeaf(Tag tag) {
    if (tag == Tag::string) return add(PropertyList(std::move(text_)));
    if (tag == Tag::key) {
      open_.back().key = std::move(text_);
      open_.back().hasKey = true;
      return true;
    }
    std::optional<PropertyList> value = valueOf(tag);
    return value && add(*std::move(value));
  }

  bool add(PropertyList&& value) {
    Container& parent = open_.back();
    if (parent.tag == Tag::dictionary) {
      parent.entries.push_back({std::move(parent.key), std::move(value)});
      parent.hasKey = false;
    } else if (onElement_ != nullptr && parent.tag == Tag::array && open_.size() == kDepthAtTop) {
      (*onElement_)(std::move(value));
    } else {
      parent.items.push_back(std::move(value));
    }
    return true;
  }

  [[nodiscard]] std::optional<PropertyList> valueOf(Tag leaf) const {
    switch (leaf) {
      case Tag::integer:
        return integerValue(trimmed(text_));
      case Tag::real:
        return realValue(trimmed(text_));
      case Tag::date:
        return dateValue(trimmed(text_));
      case Tag::data:
        return dataValue(text_);
      case Tag::trueValue:
      case Tag::falseValue:
        if (!text_.empty()) return std::nullopt;
        return PropertyList(leaf == Tag::trueValue);
      default:
        return std::nullopt;
    }
  }

  const PropertyListHandler* onElement_;
  std::vector<Container> open_;
  std::optional<Tag> leaf_;
  std::string text_;  ///< of the leaf, so far
  std::optional<PropertyList> root_;
};

/// The XML parser with a Builder behind it. Nothing is thrown through the parser, which is C.
class Parser {
 public:
  explicit Parser(const PropertyListHandler* onElement)
      : parser_(XML_ParserCreate(nullptr)), builder_(onElement) {
    if (!parser_) throw std::bad_alloc();
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(
        parser_.get(),
        [](void* self, const char* name, const char**) {
          on(self, [&](Builder& b) { return b.start(name); });
        },
        [](void* self, const char*) { on(self, [](Builder& b) { return b.end(); }); });
    XML_SetCharacterDataHandler(parser_.get(), [](void* self, const char* text, int size) {
      on(self, [&](Builder& b) { return b.characters({text, static_cast<std::size_t>(size)}); });
    });
    // The document type may be named, but not extended: no entities, hence none that expand without end or
    // name files.
    XML_SetStartDoctypeDeclHandler(
        parser_.get(), [](void* self, const char*, const char*, const char*, int hasInternalSubset) {
          on(self, [&](Builder&) { return hasInternalSubset == 0; });
        });
    XML_SetSkippedEntityHandler(
        parser_.get(), [](void* self, const char*, int) { on(self, [](Builder&) { return false; }); });
  }

  std::optional<PropertyList> parse(std::string_view bytes) {
    // Fails when it is stopped, too: what counts is whether the list came to its end before.
    XML_Parse(parser_.get(), bytes.data(), static_cast<int>(bytes.size()), XML_TRUE);
    if (failure_) std::rethrow_exception(failure_);
    return builder_.take();
  }

 private:
  struct Deleter {
    void operator()(XML_Parser parser) const noexcept { XML_ParserFree(parser); }
  };

  template <typename Event>
  static void on(void* self, Event event) noexcept {
    auto* parser = static_cast<Parser*>(self);
    // The parser may report what it has at hand after it was stopped.
    if (parser->stopped_) return;
    try {
      parser->stopped_ = !event(parser->builder_) || parser->builder_.isComplete();
    } catch (...) {
      parser->failure_ = std::current_exception();
      parser->stopped_ = true;
    }
    if (parser->stopped_) XML_StopParser(parser->parser_.get(), XML_FALSE);
  }

  std::unique_ptr<std::remove_pointer_t<XML_Parser>, Deleter> parser_;
  Builder builder_;
  bool stopped_ = false;
  std::exception_ptr failure_;
};

}  // namespace

std::optional<PropertyList> parseXmlPropertyList(std::string_view bytes,
                                                 const PropertyListHandler* onElement) {
  return Parser(onElement).parse(bytes);
}

}  // namespace molvane
